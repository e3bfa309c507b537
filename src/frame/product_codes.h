// Configured constants of the package that ships this library.
#pragma once

namespace setuputils {

// Parent of the per-product uninstall keys under HKEY_LOCAL_MACHINE.
inline constexpr wchar_t kUninstallKeyPath[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\";

// Product code of the driver-package installer. Its uninstall key holds the
// reboot marker that the deferred driver actions leave for KSCleanup.
inline constexpr wchar_t kDriverInstallerProductCode[] = L"{6C1E5F0A-3B7D-4E29-9A41-52D8C0B7E613}";

// Product code of the driver-package registry record. Its uninstall key holds
// one value per driver package: where the staged copy of its INF went.
inline constexpr wchar_t kInfLocationProductCode[] = L"{A83F2C6E-91D4-4B5A-8E07-3D6B14C9F251}";

// Upgrade codes of the outside vendor's ViPNet CSP packages, looked for in
// this order by CheckVipNet.
inline constexpr const wchar_t* kVipNetUpgradeCodes[] = {
    L"{BA06D25A-A68B-48AF-8C32-9559D7F06AF0}",
    L"{19E484A8-326E-45F1-AB11-AEB0393BB7C2}",
    L"{FD278D12-C1FB-42B8-A55F-24C902B05024}",
};

// Product codes of other GOST providers and of earlier editions of this one
// that conflict with the package, in the order AnotherCSPDetected lists them.
inline constexpr const wchar_t* kConflictingProductCodes[] = {
    L"{1A83842D-D1AF-4A6D-85BE-E2F320427921}", L"{983D393D-AB33-42AC-B714-B87B4F97CE16}",
    L"{1FEB941C-E0C9-4074-963B-0E653BA380F9}", L"{6DC432D8-5721-419A-ADC7-18B268C55516}",
    L"{047251D6-EEF1-498E-919E-2A33EDDDDACC}", L"{2AB50190-DC62-473E-8E22-3492483B5E50}",
    L"{429984AD-89B9-4EF8-B9FA-D7A3B7D4D7F3}", L"{E23D7E83-A728-40DB-BFF1-ACB8ECA722FE}",
    L"{257551A4-9926-45F6-8988-B935DA989585}", L"{B9E675FD-2550-48F9-A5BD-F7F07FFB7185}",
    L"{C8C4429A-4DD0-4816-8DC0-0BF3939B474D}", L"{0D36753B-06A4-4A77-8063-7C3F953A29C5}",
    L"{0876010A-DB90-408D-A916-A9F964889CF2}",
};

// Product codes of the earlier editions of this provider whose application
// paths RemoveAppPaths cleans up along with the package's own.
inline constexpr const wchar_t* kEarlierEditionProductCodes[] = {
    L"{5E2B7C41-0A9D-4F63-B8E1-7C24D9A0F356}",
    L"{93D0A6F2-4C1B-4E87-A25D-E61F0B8C7A49}",
    L"{C47F1D28-6B3E-4A90-9D52-08AE7F3B1C64}",
};

// The component code AddNewFeatures asks about in the package's own product
// before it selects "nvcspr1"; the same value as the third earlier edition's
// product code.
inline constexpr wchar_t kNewFeaturesProbeComponent[] = L"{C47F1D28-6B3E-4A90-9D52-08AE7F3B1C64}";

} // namespace setuputils
