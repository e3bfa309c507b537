/* A kernel driver that loads and unloads, the service of the tests' driver packages. As the service
 * "NvnCtrl" it serves the control device "\\.\Global\NvnCtrl", recording under RECORDS the last open's
 * share mode, the counts of requests and closes, and the last request's code and buffer lengths. */
#include <ntddk.h>

#define TESTS L"\\Registry\\Machine\\Software\\SetupUtilsTests"
#define RECORDS TESTS L"\\NvnCtrl"

static UNICODE_STRING linkName;
static PDEVICE_OBJECT controlDevice;
static ULONG closes, requests;

static void Record(PCWSTR name, ULONG value) {
    RtlCreateRegistryKey(RTL_REGISTRY_ABSOLUTE, TESTS);
    RtlCreateRegistryKey(RTL_REGISTRY_ABSOLUTE, RECORDS);
    RtlWriteRegistryValue(RTL_REGISTRY_ABSOLUTE, RECORDS, name, REG_DWORD, &value, sizeof(value));
}

static NTSTATUS NTAPI Dispatch(PDEVICE_OBJECT device, PIRP irp) {
    PIO_STACK_LOCATION stack = IoGetCurrentIrpStackLocation(irp);
    (void)device;
    if (stack->MajorFunction == IRP_MJ_CREATE) {
        Record(L"OpenShare", stack->Parameters.Create.ShareAccess);
    } else if (stack->MajorFunction == IRP_MJ_CLOSE) {
        Record(L"Closes", ++closes);
    } else {
        Record(L"Requests", ++requests);
        Record(L"IoControlCode", stack->Parameters.DeviceIoControl.IoControlCode);
        Record(L"InputLength", stack->Parameters.DeviceIoControl.InputBufferLength);
        Record(L"OutputLength", stack->Parameters.DeviceIoControl.OutputBufferLength);
    }
    irp->IoStatus.Status = STATUS_SUCCESS;
    irp->IoStatus.Information = 0;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return STATUS_SUCCESS;
}

static void NTAPI TestDriverUnload(PDRIVER_OBJECT driver) {
    (void)driver;
    if (controlDevice != NULL) {
        IoDeleteSymbolicLink(&linkName);
        IoDeleteDevice(controlDevice);
    }
}

NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) {
    UNICODE_STRING service, deviceName;
    RtlInitUnicodeString(&service, L"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\NvnCtrl");
    driver->DriverUnload = TestDriverUnload;
    if (!RtlEqualUnicodeString(registryPath, &service, TRUE)) {
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
    driver->MajorFunction[IRP_MJ_CREATE] = Dispatch;
    driver->MajorFunction[IRP_MJ_CLOSE] = Dispatch;
    driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = Dispatch;
    return STATUS_SUCCESS;
}
