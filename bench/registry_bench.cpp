// Times the registry library's tree operations against the system's on a tree
// of 10,000 keys with values, and prints the ratios (library / system).
//
//   registry_bench.exe [rounds]
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <windows.h>

#include "frame/handles.h"
#include "registry/registry_library.h"

namespace {

using setuputils::RegKey;

constexpr wchar_t kBenchKey[] = L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion\\Bench";
constexpr wchar_t kBenchMapped[] = L"\\CONFIG64\\Bench";
constexpr int kFanOut = 10;      // 10 x 10 x 100 = 10,000 keys at the deepest level
constexpr int kLeavesPerKey = 100;

double Seconds(LARGE_INTEGER from, LARGE_INTEGER to) {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(to.QuadPart - from.QuadPart) / static_cast<double>(frequency.QuadPart);
}

template <typename Work>
double Time(Work work) {
    LARGE_INTEGER start;
    LARGE_INTEGER end;
    QueryPerformanceCounter(&start);
    work();
    QueryPerformanceCounter(&end);
    return Seconds(start, end);
}

RegKey Create(HKEY parent, const std::wstring& name) {
    RegKey key;
    if (RegCreateKeyExW(parent, name.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.put(), nullptr) !=
        ERROR_SUCCESS) {
        std::fprintf(stderr, "cannot create a key\n");
        std::exit(1);
    }
    return key;
}

void SetValues(HKEY key, int seed) {
    DWORD number = static_cast<DWORD>(seed);
    std::wstring text = L"value " + std::to_wstring(seed);
    RegSetValueExW(key, L"Number", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof(number));
    RegSetValueExW(key, L"Text", 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                   static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

// 10,000 leaf keys below 100 inner keys, each key with two values.
void BuildTree(const std::wstring& path) {
    RegKey root = Create(HKEY_LOCAL_MACHINE, path);
    SetValues(root.get(), 0);
    for (int i = 0; i < kFanOut; ++i) {
        RegKey first = Create(root.get(), L"Group" + std::to_wstring(i));
        SetValues(first.get(), i);
        for (int j = 0; j < kFanOut; ++j) {
            RegKey second = Create(first.get(), L"Set" + std::to_wstring(j));
            SetValues(second.get(), j);
            for (int k = 0; k < kLeavesPerKey; ++k) {
                RegKey leaf = Create(second.get(), L"Key" + std::to_wstring(k));
                SetValues(leaf.get(), k);
            }
        }
    }
}

RegKey Open(const std::wstring& path) {
    RegKey key;
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_ALL_ACCESS, key.put());
    return key;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;
    const std::wstring source = std::wstring(kBenchKey) + L"\\Source";
    const std::wstring target = std::wstring(kBenchKey) + L"\\Target";
    std::vector<double> moveLibrary, moveSystem, deleteLibrary, deleteSystem;

    for (int round = 0; round < rounds; ++round) {
        BuildTree(source);
        moveLibrary.push_back(Time([&] {
            RegKey from = Open(source);
            RegKey to = Create(HKEY_LOCAL_MACHINE, target);
            setuputils::MoveKeyTree(to.get(), from.get());
        }));
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, kBenchKey);

        BuildTree(source);
        moveSystem.push_back(Time([&] {
            RegKey from = Open(source);
            RegKey to = Create(HKEY_LOCAL_MACHINE, target);
            RegCopyTreeW(from.get(), nullptr, to.get());
            RegDeleteTreeW(from.get(), nullptr);
        }));
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, kBenchKey);

        BuildTree(kBenchKey);
        deleteLibrary.push_back(Time([&] { setuputils::DeleteMappedTree(kBenchMapped); }));
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, kBenchKey);

        BuildTree(kBenchKey);
        deleteSystem.push_back(Time([&] { RegDeleteTreeW(HKEY_LOCAL_MACHINE, kBenchKey); }));
    }

    const double move = Median(moveLibrary) / Median(moveSystem);
    const double remove = Median(deleteLibrary) / Median(deleteSystem);
    std::printf("registry tree of 10,000 keys (+110 inner), 2 values each; median of %d rounds\n", rounds);
    std::printf("MoveKeyTree          %8.3f s   RegCopyTreeW + RegDeleteTreeW %8.3f s   ratio %.2f\n",
                Median(moveLibrary), Median(moveSystem), move);
    std::printf("DeleteMappedTree     %8.3f s   RegDeleteTreeW                %8.3f s   ratio %.2f\n",
                Median(deleteLibrary), Median(deleteSystem), remove);
    return 0;
}
