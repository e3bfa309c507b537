// Fuzzes the smart-card type logic with arbitrary input: ATR and mask texts,
// the masked-ATR match, card key names, the card list and the Registry value
// texts. The sanitizers catch out-of-bounds access; the checks hold the
// functions to the properties the registration relies on.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <algorithm>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "readers/smart_card_types.h"

namespace {

using namespace setuputils;

void Check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

std::wstring WideInput(std::span<const std::uint8_t> data) {
    std::wstring text;
    for (std::size_t i = 0; i + 1 < data.size(); i += 2) {
        text.push_back(static_cast<wchar_t>(data[i] | (data[i + 1] << 8)));
    }
    return text;
}

void CheckCardBytes(const std::wstring& text) {
    const std::optional<CardBytes> bytes = ParseCardBytes(text);
    const std::size_t hash = text.find(L'#');
    Check(bytes.has_value() == (hash != std::wstring::npos));
    if (bytes) {
        const std::size_t length = text.size() - hash;
        Check(bytes->size() == (length >= 2 ? length / 2 - 1 : 0));
        Check(ParseCardBytes(FormatCardBytes(*bytes)) == bytes);
    }
}

// Four byte strings, the first three input bytes giving the first three lengths.
void CheckMatch(std::span<const std::uint8_t> data) {
    if (data.size() < 3) {
        return;
    }
    std::span<const std::uint8_t> rest = data.subspan(3);
    std::span<const std::uint8_t> parts[4];
    for (int i = 0; i < 3; ++i) {
        const std::size_t length = std::min<std::size_t>(data[i], rest.size());
        parts[i] = rest.first(length);
        rest = rest.subspan(length);
    }
    parts[3] = rest;
    const auto& [atr1, mask1, atr2, mask2] = parts;
    const bool match = MaskedAtrsMatch(atr1, mask1, atr2, mask2);
    Check(match == MaskedAtrsMatch(atr2, mask2, atr1, mask1));
    Check(MaskedAtrsMatch(atr1, mask1, atr1, mask1));
    Check(MaskedAtrsMatch(atr1, {}, atr2, mask2) && MaskedAtrsMatch(atr1, mask1, atr2, {}));
    const std::vector<std::uint8_t> cleared(mask1.size(), 0);
    Check(MaskedAtrsMatch(atr1, cleared, atr2, mask2));
}

// Rows "name|parameter|value" separated by U+0001.
void CheckCardList(const std::wstring& text) {
    CardRowsByName rows;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find(L'\1', start), text.size());
        const std::wstring row = text.substr(start, end - start);
        const std::size_t first = row.find(L'|');
        const std::size_t second = first == std::wstring::npos ? first : row.find(L'|', first + 1);
        if (second != std::wstring::npos) {
            AddCardRow(rows, row.substr(0, first), row.substr(first + 1, second - first - 1),
                       row.substr(second + 1));
        }
        start = end + 1;
    }
    const CardList list = BuildCalaisCards(rows, L"CSP");
    Check(list.cards.size() + list.leftOut.size() == rows.size());
    std::set<std::wstring> keys;
    for (const CalaisCard& card : list.cards) {
        const std::wstring key = CardKeyName(card.name);
        Check(IsOwnCardKey(key) && key.find(L'\\') == std::wstring::npos && keys.insert(key).second);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> input(data, size);
    const std::wstring text = WideInput(input);
    CheckCardBytes(text);
    CheckMatch(input);
    CheckCardList(text);
    if (!input.empty()) {
        // A string never becomes a list, and binary text reads back as the same bytes.
        const std::wstring value = RegistryValueText(input[0] % 12, input.subspan(1));
        Check(input[0] % 12 == kRegTypeMultiString || value.find(L"[~]") == std::wstring::npos);
        if (input[0] % 12 == kRegTypeBinary) {
            Check(ParseCardBytes(value) == CardBytes(input.begin() + 1, input.end()));
        }
    }
    return 0;
}
