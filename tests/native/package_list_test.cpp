#include "sspi/package_list.h"

#include <gtest/gtest.h>

#include <cwctype>
#include <string>

namespace setuputils {
namespace {

using namespace std::string_literals;

bool EqualIgnoringCase(const std::wstring& a, const std::wstring& b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (std::towlower(a[i]) != std::towlower(b[i])) {
            return false;
        }
    }
    return true;
}

std::wstring Edit(const std::wstring& data, const std::wstring& name, bool insert) {
    return JoinPackageList(EditPackageList(SplitPackageList(data), name, insert, EqualIgnoringCase));
}

TEST(PackageList, InsertAndRemoveAsTheAuthorityListNeedsThem) {
    struct Case {
        std::wstring data;
        const wchar_t* name;
        bool insert;
        std::wstring expected;
    };
    const Case cases[] = {
        // After the last package of a well-formed value, before its closing empty entry.
        {L"kerberos\0msv1_0\0schannel\0\0"s, L"nvsspap", true, L"kerberos\0msv1_0\0schannel\0nvsspap\0\0"s},
        // Listed already: kept as spelled, nothing added; a second copy goes.
        {L"a\0NVSSPAP\0b\0\0"s, L"nvsspap", true, L"a\0NVSSPAP\0b\0\0"s},
        {L"NvSspAp\0a\0nvsspap\0\0"s, L"nvsspap", true, L"NvSspAp\0a\0\0"s},
        // Without the final empty entry: before the last package.
        {L"a\0b\0"s, L"nvsspap", true, L"a\0nvsspap\0b\0"s},
        {L"a\0b"s, L"nvsspap", true, L"a\0nvsspap\0b\0"s},
        // A missing or empty value: the name and the closing empty entry.
        {L""s, L"nvsspap", true, L"nvsspap\0\0"s},
        // The name is the last entry itself.
        {L"a\0nvsspap"s, L"nvsspap", true, L"a\0nvsspap\0"s},
        // Removing drops every copy; an absent name leaves the list as it was.
        {L"sspp\0a\0SSPP\0\0"s, L"sspp", false, L"a\0\0"s},
        {L"a\0b\0\0"s, L"itcssp", false, L"a\0b\0\0"s},
        {L""s, L"itcssp", false, L"\0"s},
        // Names are whole entries, not parts of one; empty entries inside stay.
        {L"nvsspap2\0\0b\0\0"s, L"nvsspap", true, L"nvsspap2\0\0b\0nvsspap\0\0"s},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Edit(c.data, c.name, c.insert), c.expected)
            << "data of " << c.data.size() << " chars, " << (c.insert ? "insert " : "remove ") << c.name;
    }
}

} // namespace
} // namespace setuputils
