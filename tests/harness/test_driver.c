/* A kernel driver that loads and unloads: the tests run it as the service of a
 * driver package. Run as the service "NvnCtrl" it also stands in for the
 * provider's control device "\\.\Global\NvnCtrl": under
 * HKLM\Software\SetupUtilsTests\NvnCtrl it keeps the share mode of the last
 * open, counts the control requests and the closes, and keeps the last
 * request's code and buffer lengths. */
#include <ntddk.h>

static UNICODE_STRING linkName;
static PDEVICE_OBJECT controlDevice;
static ULONG closes;
static ULONG requests;

static void Record(PCWSTR name, ULONG value) {
    RtlCreateRegistryKey(RTL_REGISTRY_ABSOLUTE, L"\\Registry\\Machine\\Software\\SetupUtilsTests");
    RtlCreateRegistryKey(RTL_REGISTRY_ABSOLUTE, L"\\Registry\\Machine\\Software\\SetupUtilsTests\\NvnCtrl");
    RtlWriteRegistryValue(RTL_REGISTRY_ABSOLUTE, L"\\Registry\\Machine\\Software\\SetupUtilsTests\\NvnCtrl",
                          name, REG_DWORD, &value, sizeof(value));
}

static NTSTATUS Complete(PIRP irp) {
    irp->IoStatus.Status = STATUS_SUCCESS;
    irp->IoStatus.Information = 0;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return STATUS_SUCCESS;
}

static NTSTATUS NTAPI Open(PDEVICE_OBJECT device, PIRP irp) {
    (void)device;
    Record(L"OpenShare", IoGetCurrentIrpStackLocation(irp)->Parameters.Create.ShareAccess);
    return Complete(irp);
}

static NTSTATUS NTAPI Close(PDEVICE_OBJECT device, PIRP irp) {
    (void)device;
    Record(L"Closes", ++closes);
    return Complete(irp);
}

static NTSTATUS NTAPI Control(PDEVICE_OBJECT device, PIRP irp) {
    PIO_STACK_LOCATION stack = IoGetCurrentIrpStackLocation(irp);
    (void)device;
    Record(L"Requests", ++requests);
    Record(L"IoControlCode", stack->Parameters.DeviceIoControl.IoControlCode);
    Record(L"InputLength", stack->Parameters.DeviceIoControl.InputBufferLength);
    Record(L"OutputLength", stack->Parameters.DeviceIoControl.OutputBufferLength);
    return Complete(irp);
}

static void NTAPI TestDriverUnload(PDRIVER_OBJECT driver) {
    (void)driver;
    if (controlDevice != NULL) {
        IoDeleteSymbolicLink(&linkName);
        IoDeleteDevice(controlDevice);
    }
}

NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) {
    UNICODE_STRING controlService;
    UNICODE_STRING deviceName;
    RtlInitUnicodeString(&controlService,
                         L"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\NvnCtrl");
    driver->DriverUnload = TestDriverUnload;
    if (!RtlEqualUnicodeString(registryPath, &controlService, TRUE)) {
        return STATUS_SUCCESS;
    }
    RtlInitUnicodeString(&deviceName, L"\\Device\\NvnCtrl");
    RtlInitUnicodeString(&linkName, L"\\DosDevices\\NvnCtrl");
    if (!NT_SUCCESS(IoCreateDevice(driver, 0, &deviceName, FILE_DEVICE_UNKNOWN, 0, FALSE, &controlDevice))) {
        return STATUS_UNSUCCESSFUL;
    }
    if (!NT_SUCCESS(IoCreateSymbolicLink(&linkName, &deviceName))) {
        IoDeleteDevice(controlDevice);
        controlDevice = NULL;
        return STATUS_UNSUCCESSFUL;
    }
    driver->MajorFunction[IRP_MJ_CREATE] = Open;
    driver->MajorFunction[IRP_MJ_CLOSE] = Close;
    driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = Control;
    return STATUS_SUCCESS;
}
