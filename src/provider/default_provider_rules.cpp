#include "provider/default_provider_rules.h"

#include <climits>
#include <cwctype>

namespace setuputils {
namespace {

constexpr wchar_t kTypeSeparator = L':';
constexpr wchar_t kEntrySeparator = L'/';
constexpr unsigned long kCurrentMajorVersion = 3;
constexpr int kGostTypes[] = {75, 80, 81};
constexpr int kRsaFullType = 1;
constexpr int kRsaAesType = 24;
constexpr wchar_t kRsaFullFallback[] = L"Microsoft Strong Cryptographic Provider";
constexpr wchar_t kRsaAesFallback[] = L"Microsoft Enhanced RSA and AES Cryptographic Provider";

unsigned long MajorVersion(unsigned long version) {
    return (version >> 8) & 0xFF;
}

} // namespace

int ReadDecimal(std::wstring_view text) {
    size_t at = 0;
    while (at < text.size() && std::iswspace(static_cast<wint_t>(text[at])) != 0) {
        ++at;
    }
    bool negative = false;
    if (at < text.size() && (text[at] == L'-' || text[at] == L'+')) {
        negative = text[at] == L'-';
        ++at;
    }
    long long value = 0;
    for (; at < text.size() && text[at] >= L'0' && text[at] <= L'9'; ++at) {
        value = value * 10 + (text[at] - L'0');
        if (value > static_cast<long long>(INT_MAX) + 1) {
            value = static_cast<long long>(INT_MAX) + 1;
        }
    }
    if (negative) {
        return static_cast<int>(-value);
    }
    return value > INT_MAX ? INT_MAX : static_cast<int>(value);
}

std::vector<PackageProvider> ParseProviderList(std::wstring_view list) {
    std::vector<PackageProvider> entries;
    for (size_t colon = list.find(kTypeSeparator); colon != std::wstring_view::npos;
         colon = list.find(kTypeSeparator)) {
        const std::wstring_view rest = list.substr(colon + 1);
        const size_t slash = rest.find(kEntrySeparator);
        entries.push_back({ReadDecimal(list.substr(0, colon)), std::wstring(rest.substr(0, slash))});
        list = slash == std::wstring_view::npos ? std::wstring_view() : rest.substr(slash + 1);
    }
    return entries;
}

bool IsCurrentProvider(unsigned long version, bool answersParam129, bool answersParam138) {
    return MajorVersion(version) >= kCurrentMajorVersion && answersParam129 && answersParam138;
}

bool ReplacesOutdatedDefault(int type) {
    for (int gost : kGostTypes) {
        if (type == gost) {
            return true;
        }
    }
    return false;
}

std::wstring_view SystemFallbackProvider(int type) {
    switch (type) {
    case kRsaFullType:
        return kRsaFullFallback;
    case kRsaAesType:
        return kRsaAesFallback;
    default:
        return {};
    }
}

} // namespace setuputils
