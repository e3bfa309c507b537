/* A kernel driver that loads and unloads and does nothing else: the tests run
 * it as the service of a driver package. */
#include <ntddk.h>

static void NTAPI TestDriverUnload(PDRIVER_OBJECT driver) {
    (void)driver;
}

NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) {
    (void)registryPath;
    driver->DriverUnload = TestDriverUnload;
    return STATUS_SUCCESS;
}
