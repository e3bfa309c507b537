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

} // namespace setuputils
