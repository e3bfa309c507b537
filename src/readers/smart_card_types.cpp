#include "readers/smart_card_types.h"

#include <algorithm>
#include <cstring>
#include <set>

namespace setuputils {
namespace {

constexpr wchar_t kBinaryPrefix[] = L"#x";
constexpr wchar_t kBackupJoiner[] = L"\\backup_";
constexpr wchar_t kRemovalMarker[] = L"_REMOVE_";
constexpr wchar_t kListSeparator[] = L"[~]";
constexpr wchar_t kHexDigits[] = L"0123456789ABCDEF";

int HexDigitValue(wchar_t c) {
    if (c >= L'0' && c <= L'9') {
        return c - L'0';
    }
    if (c >= L'a' && c <= L'f') {
        return c - L'a' + 10;
    }
    if (c >= L'A' && c <= L'F') {
        return c - L'A' + 10;
    }
    return -1;
}

std::uint8_t ParseHexPair(wchar_t high, wchar_t low) {
    const int first = HexDigitValue(high);
    if (first < 0) {
        return 0;
    }
    const int second = HexDigitValue(low);
    return static_cast<std::uint8_t>(second < 0 ? first : first * 16 + second);
}

wchar_t ToUpper(wchar_t c) {
    return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c;
}

// Registry data as UTF-16 characters; an odd last byte is dropped.
std::wstring WideChars(std::span<const std::uint8_t> data) {
    std::wstring text(data.size() / sizeof(wchar_t), L'\0');
    if (!text.empty()) {
        std::memcpy(text.data(), data.data(), text.size() * sizeof(wchar_t));
    }
    return text;
}

// Text the installer takes literally: its formatting characters escaped as "[\c]".
std::wstring EscapeFormatted(std::wstring_view text) {
    std::wstring escaped;
    for (wchar_t c : text) {
        if (c == L'[' || c == L']' || c == L'{' || c == L'}') {
            escaped.append(L"[\\").push_back(c);
            escaped.push_back(L']');
        } else {
            escaped.push_back(c);
        }
    }
    return escaped;
}

std::wstring StringListText(std::span<const std::uint8_t> data) {
    const std::wstring text = WideChars(data);
    std::wstring value = kListSeparator;
    // Items end at each terminator; the list ends at an empty item.
    for (std::size_t start = 0; start < text.size() && text[start] != L'\0';) {
        const std::size_t end = std::min(text.find(L'\0', start), text.size());
        value.append(EscapeFormatted(std::wstring_view(text).substr(start, end - start)))
            .append(kListSeparator);
        start = end + 1;
    }
    return value;
}

// Adds the card of `name` to `cards`, or tells why it cannot be registered.
std::optional<CardDefect> AddCard(const std::wstring& name, const CardValueTexts& texts,
                                  const std::wstring& provider, std::set<std::wstring>& keys,
                                  std::vector<CalaisCard>& cards) {
    std::optional<CardBytes> atr = texts.atr ? ParseCardBytes(*texts.atr) : std::nullopt;
    std::optional<CardBytes> mask = texts.mask ? ParseCardBytes(*texts.mask) : std::nullopt;
    if ((texts.atr && !atr) || (texts.mask && !mask)) {
        return CardDefect::NoHash;
    }
    if (!atr) {
        return CardDefect::NoAtr;
    }
    if (!mask) {
        return CardDefect::NoMask;
    }
    const std::wstring key = CardKeyName(name);
    if (key.empty()) {
        return CardDefect::BadKeyName;
    }
    if (!keys.insert(key).second) {
        return CardDefect::KeyTaken;
    }
    cards.push_back({name, std::move(*atr), std::move(*mask), provider});
    return std::nullopt;
}

} // namespace

std::optional<CardBytes> ParseCardBytes(std::wstring_view value) {
    const std::size_t hash = value.find(L'#');
    if (hash == std::wstring_view::npos) {
        return std::nullopt;
    }
    const std::wstring_view text = value.substr(hash);
    CardBytes bytes;
    for (std::size_t pair = 0; pair + 1 < text.size() / 2; ++pair) {
        bytes.push_back(ParseHexPair(text[2 + 2 * pair], text[3 + 2 * pair]));
    }
    return bytes;
}

std::wstring FormatCardBytes(std::span<const std::uint8_t> bytes) {
    std::wstring text = kBinaryPrefix;
    for (std::uint8_t byte : bytes) {
        text.push_back(kHexDigits[byte >> 4]);
        text.push_back(kHexDigits[byte & 0xF]);
    }
    return text;
}

bool MaskedAtrsMatch(std::span<const std::uint8_t> atr1, std::span<const std::uint8_t> mask1,
                     std::span<const std::uint8_t> atr2, std::span<const std::uint8_t> mask2) {
    auto at = [](std::span<const std::uint8_t> atr, std::size_t i) { return i < atr.size() ? atr[i] : 0; };
    const std::size_t length = std::min(mask1.size(), mask2.size());
    for (std::size_t i = 0; i < length; ++i) {
        if (((at(atr1, i) ^ at(atr2, i)) & mask1[i] & mask2[i]) != 0) {
            return false;
        }
    }
    return true;
}

std::wstring CardKeyName(std::wstring_view cardName) {
    std::wstring name(cardName);
    if (const std::size_t slash = name.find(L'\\'); slash != std::wstring::npos) {
        name[slash] = L'_';
    }
    if (name.empty() || name.find(L'\\') != std::wstring::npos) {
        return {};
    }
    return kOwnCardKeyPrefix + name;
}

bool IsOwnCardKey(std::wstring_view keyName) {
    const std::wstring_view prefix = kOwnCardKeyPrefix;
    return keyName.size() >= prefix.size() &&
           std::equal(prefix.begin(), prefix.end(), keyName.begin(),
                      [](wchar_t a, wchar_t b) { return ToUpper(a) == ToUpper(b); });
}

std::wstring CardBackupKey(std::wstring_view parent, std::wstring_view provider) {
    return std::wstring(parent).append(kBackupJoiner).append(provider);
}

std::wstring ValueRowIdentifier(const CardTypeView& view, std::wstring_view key,
                                std::wstring_view valueName) {
    return std::wstring(view.marker).append(key).append(L"\\").append(valueName);
}

std::wstring RemovalRowIdentifier(const CardTypeView& view, std::wstring_view key) {
    return std::wstring(view.marker).append(kRemovalMarker).append(key);
}

void AddCardRow(CardRowsByName& rows, const std::wstring& name, std::wstring_view parameter,
                const std::wstring& value) {
    if (parameter == L"ATR") {
        rows[name].atr = value;
    } else if (parameter == L"Mask") {
        rows[name].mask = value;
    }
}

CardList BuildCalaisCards(const CardRowsByName& rows, const std::wstring& provider) {
    CardList list;
    std::set<std::wstring> keys;
    for (const auto& [name, texts] : rows) {
        if (std::optional<CardDefect> defect = AddCard(name, texts, provider, keys, list.cards)) {
            list.leftOut.push_back({name, *defect});
        }
    }
    return list;
}

std::wstring DescribeLeftOutCard(const LeftOutCard& card) {
    const wchar_t* reason = L"";
    switch (card.defect) {
    case CardDefect::NoAtr:
        reason = L"has no ATR row";
        break;
    case CardDefect::NoMask:
        reason = L"has no Mask row";
        break;
    case CardDefect::NoHash:
        reason = L"has an ATR or Mask value without \"#\"";
        break;
    case CardDefect::BadKeyName:
        reason = L"has a name that gives no card key";
        break;
    case CardDefect::KeyTaken:
        reason = L"has the card key of another card";
        break;
    }
    return L"Card type '" + card.name + L"' " + reason;
}

std::wstring RegistryDataText(std::span<const std::uint8_t> data) {
    const std::wstring text = WideChars(data);
    return text.substr(0, text.find(L'\0'));
}

std::wstring StringValueText(std::wstring_view text) {
    return (text.starts_with(L'#') ? L"#" : L"") + EscapeFormatted(text);
}

std::wstring RegistryValueText(std::uint32_t type, std::span<const std::uint8_t> data) {
    switch (type) {
    case kRegTypeString:
        return StringValueText(RegistryDataText(data));
    case kRegTypeExpandString:
        return L"#%" + EscapeFormatted(RegistryDataText(data));
    case kRegTypeMultiString:
        return StringListText(data);
    case kRegTypeDword:
        if (data.size() == sizeof(std::uint32_t)) {
            std::uint32_t number = 0;
            std::memcpy(&number, data.data(), sizeof(number));
            return L"#" + std::to_wstring(static_cast<std::int32_t>(number));
        }
        break;
    default:
        break;
    }
    return FormatCardBytes(data);
}

} // namespace setuputils
