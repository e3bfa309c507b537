// The certificate actions against the system stores of the test prefix, the
// CryptoAPI localized-names key and the provider's settings.
//
// Wine does not write back properties changed on certificates of a system
// store (a commit or a reopen undoes them), so the stores tell nothing of what
// an action did. setuputils.dll's imports of CertSetCertificateContextProperty
// and CertAddCertificateContextToStore are pointed at recorders instead, which
// note which certificates lost or got which property and were put back, and
// pass each call on. CertUnregisterSystemStore is a stub: the store stays, and
// it fails only for a store that never existed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include <windows.h>
#include <wincrypt.h>
#include <sddl.h>

#include "action_session.h"
#include "import_redirect.h"
#include "machine.h"
#include "profiles/access_rights.h"

namespace harness {
namespace {

using setuputils::CertContext;
using setuputils::CertStore;
using setuputils::LocalMemory;
using setuputils::RegKey;

constexpr DWORD kUser = CERT_SYSTEM_STORE_CURRENT_USER;
constexpr DWORD kMachine = CERT_SYSTEM_STORE_LOCAL_MACHINE;
const std::wstring kStores = L"Software\\Microsoft\\SystemCertificates\\";
const std::wstring kParent =
    L"SOFTWARE\\Microsoft\\Cryptography\\OID\\EncodingType 0\\CryptDllFindLocalizedName";
const std::wstring kLocalizedNames = kParent + L"\\LocalizedNames";
const std::wstring kTrustedStore = kStores + L"NorvaneTrustedStore";
constexpr char kGost256[] = "1.2.643.7.1.1.3.2", kGost512[] = "1.2.643.7.1.1.3.3";

// Calls of setuputils.dll into crypt32, as "<serial> <what>".
std::vector<std::wstring> g_calls;

std::wstring Serial(PCCERT_CONTEXT certificate) {
    return std::to_wstring(certificate->pCertInfo->SerialNumber.pbData[0]);
}

BOOL WINAPI RecordSetProperty(PCCERT_CONTEXT certificate, DWORD property, DWORD flags, const void* data) {
    std::wstring call =
        Serial(certificate) + (data == nullptr ? L" drop " : L" set ") + std::to_wstring(property);
    if (data != nullptr && property == CERT_KEY_PROV_INFO_PROP_ID) {
        const auto* link = static_cast<const CRYPT_KEY_PROV_INFO*>(data);
        const wchar_t* name = link->pwszProvName != nullptr ? link->pwszProvName : L"";
        call += L" type " + std::to_wstring(link->dwProvType) + L" name '" + name + L"'";
    }
    g_calls.push_back(call);
    return CertSetCertificateContextProperty(certificate, property, flags, data);
}

BOOL WINAPI RecordAdd(HCERTSTORE store, PCCERT_CONTEXT certificate, DWORD disposition,
                      PCCERT_CONTEXT* added) {
    g_calls.push_back(Serial(certificate) + L" add " + std::to_wstring(disposition));
    return CertAddCertificateContextToStore(store, certificate, disposition, added);
}

std::vector<BYTE> Encode(LPCSTR type, const void* value) {
    DWORD size = 0;
    CryptEncodeObjectEx(X509_ASN_ENCODING, type, value, 0, nullptr, nullptr, &size);
    std::vector<BYTE> bytes(size);
    EXPECT_TRUE(CryptEncodeObjectEx(X509_ASN_ENCODING, type, value, 0, nullptr, bytes.data(), &size));
    return bytes;
}

// A certificate with a dummy signature by `algorithm`, told apart by its serial.
CertContext MakeCertificate(const char* algorithm, BYTE serial) {
    BYTE serialNumber[] = {serial}, emptyName[] = {0x30, 0x00}, key[] = {0x04, 0x02, 0x01, 0x02};
    CERT_INFO info{};
    info.dwVersion = CERT_V3;
    info.SerialNumber = {1, serialNumber};
    info.SignatureAlgorithm.pszObjId = const_cast<char*>(algorithm);
    info.Issuer = info.Subject = {sizeof(emptyName), emptyName};
    info.SubjectPublicKeyInfo.Algorithm.pszObjId = const_cast<char*>("1.2.643.7.1.1.1.1");
    info.SubjectPublicKeyInfo.PublicKey = {sizeof(key), key, 0};
    std::vector<BYTE> toBeSigned = Encode(X509_CERT_TO_BE_SIGNED, &info);
    BYTE signature[64] = {};
    CERT_SIGNED_CONTENT_INFO content{{static_cast<DWORD>(toBeSigned.size()), toBeSigned.data()},
                                     info.SignatureAlgorithm,
                                     {sizeof(signature), signature, 0}};
    std::vector<BYTE> encoded = Encode(X509_CERT, &content);
    return CertContext(
        CertCreateCertificateContext(X509_ASN_ENCODING, encoded.data(), static_cast<DWORD>(encoded.size())));
}

// Stores the certificate in a system store, made when missing, with one property set.
void AddCertificate(DWORD location, const wchar_t* store, const char* algorithm, BYTE serial, DWORD property,
                    const void* data) {
    CertStore opened(CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, location, store));
    PCCERT_CONTEXT added = nullptr;
    ASSERT_TRUE(CertAddCertificateContextToStore(opened.get(), MakeCertificate(algorithm, serial).get(),
                                                 CERT_STORE_ADD_ALWAYS, &added));
    CertContext owner(added);
    EXPECT_TRUE(data == nullptr || CertSetCertificateContextProperty(added, property, 0, data));
    EXPECT_TRUE(CertControlStore(opened.get(), 0, CERT_STORE_CTRL_COMMIT, nullptr));
}

void AddWithHash(DWORD location, const wchar_t* store, const char* algorithm, BYTE serial, DWORD hashBytes) {
    static BYTE hash[64] = {};
    CRYPT_DATA_BLOB blob{hashBytes, hash};
    AddCertificate(location, store, algorithm, serial, CERT_SIGNATURE_HASH_PROP_ID,
                   hashBytes != 0 ? &blob : nullptr);
}

void AddWithKeyLink(BYTE serial, DWORD type, const wchar_t* provider) {
    CRYPT_KEY_PROV_INFO link{};
    link.pwszContainerName = const_cast<wchar_t*>(L"container");
    link.pwszProvName = const_cast<wchar_t*>(provider);
    link.dwProvType = type;
    AddCertificate(kUser, L"My", kGost256, serial, CERT_KEY_PROV_INFO_PROP_ID, &link);
}

// Owner and access list of an HKLM key, as SDDL.
std::wstring Security(const std::wstring& path) {
    RegKey key;
    std::vector<BYTE> descriptor(10000);
    DWORD size = static_cast<DWORD>(descriptor.size());
    LocalMemory text;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, READ_CONTROL, key.put()) != ERROR_SUCCESS ||
        RegGetKeySecurity(key.get(), OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
                          descriptor.data(), &size) != ERROR_SUCCESS ||
        !ConvertSecurityDescriptorToStringSecurityDescriptorW(
            descriptor.data(), SDDL_REVISION_1, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
            reinterpret_cast<LPWSTR*>(text.put()), nullptr)) {
        return L"(unreadable)";
    }
    return static_cast<const wchar_t*>(text.get());
}

LocalMemory Descriptor(const std::wstring& sddl) {
    LocalMemory descriptor;
    EXPECT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(
        sddl.c_str(), SDDL_REVISION_1, reinterpret_cast<PSECURITY_DESCRIPTOR*>(descriptor.put()), nullptr));
    return descriptor;
}

// Creates the HKLM key when missing and gives it the access list, and the
// owner when there is one, of `sddl`.
void SetSecurity(const std::wstring& path, const std::wstring& sddl) {
    const LocalMemory descriptor = Descriptor(sddl);
    RegKey key;
    const bool owner = sddl.starts_with(L"O:");
    ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0,
                              WRITE_DAC | (owner ? WRITE_OWNER : 0), nullptr, key.put(), nullptr),
              0);
    EXPECT_EQ(RegSetKeySecurity(key.get(),
                                DACL_SECURITY_INFORMATION | (owner ? OWNER_SECURITY_INFORMATION : 0),
                                descriptor.get()),
              0);
}

class CertificatesTest : public ::testing::Test {
protected:
    CertificatesTest() { g_calls.clear(); }
    ~CertificatesTest() override {
        for (const wchar_t* store : {L"My", L"Root", L"CA"}) {
            DeleteRegistryTree(HKEY_CURRENT_USER, kStores + store);
        }
        for (const std::wstring& path : {kStores + L"My", kStores + L"CA", kTrustedStore, kParent}) {
            SetSecurity(path, L"D:(A;;KA;;;WD)");
            DeleteRegistryTree(HKEY_LOCAL_MACHINE, path);
        }
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Norvane");
    }
    std::vector<std::wstring> Calls() {
        std::vector<std::wstring> calls = g_calls;
        std::sort(calls.begin(), calls.end());
        g_calls.clear();
        return calls;
    }

    ActionSession session_;
    const HMODULE library_ = GetModuleHandleW(L"setuputils.dll");
    ImportRedirect setProperty_{library_, "crypt32.dll", "CertSetCertificateContextProperty",
                                reinterpret_cast<void*>(&RecordSetProperty)};
    ImportRedirect add_{library_, "crypt32.dll", "CertAddCertificateContextToStore",
                        reinterpret_cast<void*>(&RecordAdd)};
};

// Stores that do not exist (none of My, Root, CA of the user does in a fresh
// prefix) are neither made nor walked. Wine makes the stores My and CA of both
// locations when the machine's Root is first opened, which every machine-wide
// run does; its 149 host certificates are no GOST ones.
TEST_F(CertificatesTest, MissingStoresAreLeftMissing) {
    EXPECT_EQ(session_.Run("FixPrivateKeyLinks"), 0u);
    EXPECT_EQ(session_.Run("ClearWrongUserCertificateProperties"), 0u);
    for (const wchar_t* store : {L"My", L"Root", L"CA"}) {
        EXPECT_FALSE(RegistryKeyExists(HKEY_CURRENT_USER, kStores + store)) << store;
    }
    EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kStores + L"My"));
    EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kStores + L"CA"));
    EXPECT_EQ(session_.Run("ClearWrongMachineCertificateProperties"), 0u);
    EXPECT_EQ(Calls(), std::vector<std::wstring>{});
}

// GOST 2012-512 certificates keep 64-byte signature hashes, 2012-256 ones
// 32-byte hashes; other sizes go, other algorithms keep theirs (the sizes of
// each algorithm are the native tests').
TEST_F(CertificatesTest, SignatureHashesOfTheWrongSizeAreDropped) {
    AddWithHash(kUser, L"My", kGost512, 1, 64);
    AddWithHash(kUser, L"My", kGost512, 2, 32);
    AddWithHash(kUser, L"My", kGost256, 5, 20);
    AddWithHash(kUser, L"My", szOID_RSA_SHA256RSA, 6, 20);
    AddWithHash(kUser, L"My", kGost256, 7, 0);
    AddWithHash(kUser, L"Root", kGost256, 8, 64);
    AddWithHash(kUser, L"CA", kGost512, 9, 32);
    AddWithHash(kMachine, L"CA", kGost512, 10, 20);
    AddWithHash(kMachine, L"My", kGost256, 11, 32);

    EXPECT_EQ(session_.Run("ClearWrongMachineCertificateProperties"), 0u);
    EXPECT_EQ(Calls(), std::vector<std::wstring>{L"10 drop 15"});
    // The user's CA store shows the machine's too (in Wine, every store does).
    EXPECT_EQ(session_.Run("ClearWrongUserCertificateProperties"), 0u);
    EXPECT_EQ(Calls(), (std::vector<std::wstring>{L"10 drop 15", L"2 drop 15", L"5 drop 15", L"8 drop 15",
                                                  L"9 drop 15"}));
}

// Links of the types 2 and 71 without a provider name or naming the vendor
// move to type 75 with the name cleared and the certificate is put back;
// other vendors' links stay (the other types are the native tests').
TEST_F(CertificatesTest, OnlyTheProvidersOutdatedKeyLinksMove) {
    AddWithKeyLink(21, 71, L"");
    AddWithKeyLink(22, 2, L"Norvane GOST CSP");
    AddWithKeyLink(23, 71, L"Other Vendor GOST CSP");
    AddWithHash(kUser, L"My", kGost256, 26, 32);

    EXPECT_EQ(session_.Run("FixPrivateKeyLinks"), 0u);
    EXPECT_EQ(Calls(), (std::vector<std::wstring>{L"21 add 3", L"21 set 2 type 75 name ''", L"22 add 3",
                                                  L"22 set 2 type 75 name ''"}));
}

// The localized-names key gets its parent's owner and access list; every
// failure is logged and the closing message comes in every case.
TEST_F(CertificatesTest, AddNVCertStoreCopiesTheParentsRightsAndLogsFailures) {
    SetSecurity(kParent, L"O:SYD:P(A;;KA;;;WD)(A;CI;KR;;;BU)");
    SetSecurity(kLocalizedNames, L"D:P(A;;KA;;;WD)");
    const std::wstring parent = Security(kParent);
    ASSERT_NE(Security(kLocalizedNames), parent);
    EXPECT_EQ(session_.Run("AddNVCertStore"), 0u);
    EXPECT_EQ(Security(kLocalizedNames), parent);
    EXPECT_TRUE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kTrustedStore));
    EXPECT_EQ(session_.messages().InfoTexts(), std::vector<std::wstring>{L"Registry rights was changed"});

    // An owner that is not set keeps the access list from nothing. (The action
    // leaves the ownership privilege enabled, so an owner refused by the key's
    // access list cannot be had here; a missing one stands in for it.)
    SetSecurity(kLocalizedNames, L"O:BUD:P(A;;KA;;;WD)");
    EXPECT_EQ(setuputils::SetKeyOwnerAndDacl(kLocalizedNames, nullptr, Descriptor(L"D:P(A;;KA;;;BU)").get()),
              ERROR_INVALID_PARAMETER);
    EXPECT_EQ(Security(kLocalizedNames), L"O:BUD:P(A;;KA;;;BU)");

    // A store that cannot be registered, no parent and no key to change.
    session_.messages().Clear();
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, kParent);
    SetSecurity(kTrustedStore, L"D:(A;;KR;;;WD)");
    EXPECT_EQ(session_.Run("AddNVCertStore"), 0u);
    EXPECT_EQ(session_.messages().InfoTexts(),
              (std::vector<std::wstring>{L"CertRegisterSystemStore() fail", L"get_rights() fail",
                                         L"get_rights() fail", L"Registry rights was changed"}));
}

// The settings go with their subtree whether the store was registered or not;
// only the store that never was is logged.
TEST_F(CertificatesTest, DelAllRegDeletesTheSettingsAndUnregistersTheStore) {
    for (const bool registered : {true, false}) {
        session_.messages().Clear();
        WriteRegistryDword(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Norvane\\Settings\\Users\\S-1-5-18", L"Seeded", 1);
        if (registered) {
            EXPECT_TRUE(CertRegisterSystemStore(L"NorvaneTrustedStore", kMachine, nullptr, nullptr));
        } else {
            DeleteRegistryTree(HKEY_LOCAL_MACHINE, kTrustedStore);
        }
        EXPECT_EQ(session_.Run("DelAllReg"), 0u);
        EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Norvane\\Settings"));
        EXPECT_TRUE(RegistryKeyExists(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Norvane"));
        EXPECT_EQ(session_.messages().InfoTexts(),
                  registered ? std::vector<std::wstring>{}
                             : std::vector<std::wstring>{L"CertUnregisterSystemStore() fail"});
    }
}

} // namespace
} // namespace harness
