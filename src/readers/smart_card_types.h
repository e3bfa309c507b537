// The provider's smart-card types as the package lists them and as the
// system's smart-card subsystem keeps them: card records built from the
// RegReaders rows, ATR and mask texts, the masked-ATR match, and the keys and
// temporary-row identifiers used to register, back up and remove card types.
//
// Card key and row identifier scheme. A card's key below the card-type key
// is "NV_" followed by the card name, its first backslash turned into "_"
// ("Vendor\Model" gives "NV_Vendor_Model", "Token" gives "NV_Token"); a card
// whose name gives no such key, or the key of an earlier card, is left out.
// A Registry row's identifier is the view marker ("" or "_64_"), the full key,
// "\" and the value name; a RemoveRegistry row's identifier is the view
// marker, "_REMOVE_" and the full key. Registrations lie below SmartCards and
// backups below SmartCardsBackup, so the identifiers of all rows of all cards
// and both views differ.
//
// Portable: no Windows headers.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace setuputils {

using CardBytes = std::vector<std::uint8_t>;

// Where card types live, below HKEY_LOCAL_MACHINE, as the Registry rows name them.
inline constexpr wchar_t kCardTypesKey[] = L"SOFTWARE\\Microsoft\\Cryptography\\Calais\\SmartCards";
inline constexpr wchar_t kCardBackupsKey[] = L"SOFTWARE\\Microsoft\\Cryptography\\Calais\\SmartCardsBackup";

// The values of a card type.
inline constexpr wchar_t kAtrValue[] = L"ATR";
inline constexpr wchar_t kAtrMaskValue[] = L"ATRMask";
inline constexpr wchar_t kCryptoProviderValue[] = L"Crypto Provider";

// The provider's own card keys begin with this; registrations are never
// backed up or replaced when they do.
inline constexpr wchar_t kOwnCardKeyPrefix[] = L"NV_";

// One registry view of the card types: where they are read directly (the
// registry library's abbreviations), and the component and identifier marker
// of the rows written for that view.
struct CardTypeView {
    const wchar_t* cardTypes;
    const wchar_t* backups;
    const wchar_t* component;
    const wchar_t* marker;
};

// The 32-bit view first, then the 64-bit one.
inline constexpr CardTypeView kCardTypeViews[] = {
    {L"\\CRYPTOGRAPHY\\Calais\\SmartCards", L"\\CRYPTOGRAPHY\\Calais\\SmartCardsBackup", L"nvcsp", L""},
    {L"\\CRYPTOGRAPHY64\\Calais\\SmartCards", L"\\CRYPTOGRAPHY64\\Calais\\SmartCardsBackup", L"nvcsp64",
     L"_64_"},
};

struct CalaisCard {
    std::wstring name;
    CardBytes atr;
    CardBytes mask;
    std::wstring provider;
};

// The bytes of an "ATR" or "Mask" value: the text from its first "#" on, the
// "#" and the character after it (the "x" of "#x") skipped, read as pairs of
// hexadecimal digits, one byte each; a trailing odd character is ignored. In
// a pair, a character that is not a hexadecimal digit ends the number ("3G"
// gives 0x03, "G3" gives 0). Nothing when the value has no "#".
std::optional<CardBytes> ParseCardBytes(std::wstring_view value);

// "#x" and each byte as two upper-case hexadecimal digits: Registry-table binary text.
std::wstring FormatCardBytes(std::span<const std::uint8_t> bytes);

// Whether two card types can be taken for each other: at every position below
// the length of the shorter mask, the ATR bytes agree on every bit that both
// masks set. An empty mask matches everything. A mask longer than its ATR
// compares the missing ATR bytes as 0.
bool MaskedAtrsMatch(std::span<const std::uint8_t> atr1, std::span<const std::uint8_t> mask1,
                     std::span<const std::uint8_t> atr2, std::span<const std::uint8_t> mask2);

// The card's key name below the card-type key; empty when the name is empty
// or still holds a backslash after the first.
std::wstring CardKeyName(std::wstring_view cardName);

// Whether `keyName` is one of the provider's own card keys. Registry key names
// ignore case, so neither does this.
bool IsOwnCardKey(std::wstring_view keyName);

// The backup key of `provider` below `parent`: parent + "\backup_" + provider.
std::wstring CardBackupKey(std::wstring_view parent, std::wstring_view provider);

// Identifiers of the Registry and RemoveRegistry rows (see the scheme above).
std::wstring ValueRowIdentifier(const CardTypeView& view, std::wstring_view key, std::wstring_view valueName);
std::wstring RemovalRowIdentifier(const CardTypeView& view, std::wstring_view key);

// The "ATR" and "Mask" values the package gives one card; a later row of the
// same card and parameter replaces an earlier one.
struct CardValueTexts {
    std::optional<std::wstring> atr;
    std::optional<std::wstring> mask;
};
using CardRowsByName = std::map<std::wstring, CardValueTexts>;

// Files an "ATR" or "Mask" row under its card; rows of other parameters are ignored.
void AddCardRow(CardRowsByName& rows, const std::wstring& name, std::wstring_view parameter,
                const std::wstring& value);

enum class CardDefect {
    NoAtr,      // no "ATR" row
    NoMask,     // no "Mask" row
    NoHash,     // an "ATR" or "Mask" value without "#": a package error that stops the registration
    BadKeyName, // the name gives no key name
    KeyTaken,   // the name gives the key name of an earlier card
};

struct LeftOutCard {
    std::wstring name;
    CardDefect defect;
};

struct CardList {
    std::vector<CalaisCard> cards; // in name order
    std::vector<LeftOutCard> leftOut;
};

// The cards of `rows` for `provider`, and those that cannot be registered.
CardList BuildCalaisCards(const CardRowsByName& rows, const std::wstring& provider);

// What the error report of a left-out card says.
std::wstring DescribeLeftOutCard(const LeftOutCard& card);

// Registry value types as the registry keeps them.
inline constexpr std::uint32_t kRegTypeString = 1;
inline constexpr std::uint32_t kRegTypeExpandString = 2;
inline constexpr std::uint32_t kRegTypeBinary = 3;
inline constexpr std::uint32_t kRegTypeDword = 4;
inline constexpr std::uint32_t kRegTypeMultiString = 7;

// The UTF-16 text of registry data up to its first terminator.
std::wstring RegistryDataText(std::span<const std::uint8_t> data);

// The Registry-table Value text of a string value: the installer's
// formatting characters escaped, and "##" for a leading "#".
std::wstring StringValueText(std::wstring_view text);

// The Registry-table Value text that makes the installer write a value of
// `type` with `data` back as it was: strings with the installer's formatting
// characters escaped ("##" for a leading "#"), "#%" expandable strings,
// "[~]"-joined string lists, "#" and a signed decimal for a DWORD, and "#x"
// bytes for everything else (which is written back as binary).
std::wstring RegistryValueText(std::uint32_t type, std::span<const std::uint8_t> data);

} // namespace setuputils
