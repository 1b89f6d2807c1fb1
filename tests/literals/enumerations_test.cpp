// The members of the platform's enumerations in the order in which UEFI 2.10 and PI 1.7 number them, written once more.
#include <gtest/gtest.h>

#include <initializer_list>

#include "platform/boot_services.h"
#include "platform/driver_configuration2.h"
#include "platform/driver_health.h"
#include "platform/dxe_services.h"
#include "platform/graphics_output.h"
#include "platform/pci_io.h"
#include "platform/pci_root_bridge_io.h"
#include "platform/runtime_services.h"
#include "platform/simple_network.h"
#include "platform/usb2_host_controller.h"
#include "platform/usb_io.h"

namespace bds {
namespace {

template <typename Enum>
void ExpectFromZero(const char* name, std::initializer_list<Enum> members) {
  unsigned number = 0;
  for (const Enum member : members) {
    EXPECT_EQ(static_cast<unsigned>(member), number) << name;
    ++number;
  }
}

TEST(Enumerations, CountFromZero) {
  ExpectFromZero("EFI_ALLOCATE_TYPE", {AllocateAnyPages, AllocateMaxAddress, AllocateAddress, MaxAllocateType});
  ExpectFromZero("EFI_MEMORY_TYPE", {EfiReservedMemoryType, EfiLoaderCode, EfiLoaderData, EfiBootServicesCode,
                                     EfiBootServicesData, EfiRuntimeServicesCode, EfiRuntimeServicesData,
                                     EfiConventionalMemory, EfiUnusableMemory, EfiACPIReclaimMemory, EfiACPIMemoryNVS,
                                     EfiMemoryMappedIO, EfiMemoryMappedIOPortSpace, EfiPalCode, EfiMaxMemoryType});
  ExpectFromZero("EFI_TIMER_DELAY", {TimerCancel, TimerPeriodic, TimerRelative});
  ExpectFromZero("EFI_LOCATE_SEARCH_TYPE", {AllHandles, ByRegisterNotify, ByProtocol});
  ExpectFromZero("EFI_DRIVER_CONFIGURATION_ACTION_REQUIRED",
                 {EfiDriverConfigurationActionNone, EfiDriverConfigurationActionStopController,
                  EfiDriverConfigurationActionRestartController, EfiDriverConfigurationActionRestartPlatform,
                  EfiDriverConfigurationActionMaximum});
  ExpectFromZero(
      "EFI_DRIVER_HEALTH_STATUS",
      {EfiDriverHealthStatusHealthy, EfiDriverHealthStatusRepairRequired, EfiDriverHealthStatusConfigurationRequired,
       EfiDriverHealthStatusFailed, EfiDriverHealthStatusReconnectRequired, EfiDriverHealthStatusRebootRequired});
  ExpectFromZero("EFI_GCD_MEMORY_TYPE",
                 {EfiGcdMemoryTypeNonExistent, EfiGcdMemoryTypeReserved, EfiGcdMemoryTypeSystemMemory,
                  EfiGcdMemoryTypeMemoryMappedIo, EfiGcdMemoryTypePersistent, EfiGcdMemoryTypeMoreReliable,
                  EfiGcdMemoryTypeMaximum});
  ExpectFromZero("EFI_GCD_IO_TYPE",
                 {EfiGcdIoTypeNonExistent, EfiGcdIoTypeReserved, EfiGcdIoTypeIo, EfiGcdIoTypeMaximum});
  ExpectFromZero("EFI_GCD_ALLOCATE_TYPE",
                 {EfiGcdAllocateAnySearchBottomUp, EfiGcdAllocateMaxAddressSearchBottomUp, EfiGcdAllocateAddress,
                  EfiGcdAllocateAnySearchTopDown, EfiGcdAllocateMaxAddressSearchTopDown, EfiGcdMaxAllocateType});
  ExpectFromZero("EFI_GRAPHICS_PIXEL_FORMAT",
                 {PixelRedGreenBlueReserved8BitPerColor, PixelBlueGreenRedReserved8BitPerColor, PixelBitMask,
                  PixelBltOnly, PixelFormatMax});
  ExpectFromZero("EFI_GRAPHICS_OUTPUT_BLT_OPERATION", {EfiBltVideoFill, EfiBltVideoToBltBuffer, EfiBltBufferToVideo,
                                                       EfiBltVideoToVideo, EfiGraphicsOutputBltOperationMax});
  ExpectFromZero(
      "EFI_PCI_IO_PROTOCOL_WIDTH",
      {EfiPciIoWidthUint8, EfiPciIoWidthUint16, EfiPciIoWidthUint32, EfiPciIoWidthUint64, EfiPciIoWidthFifoUint8,
       EfiPciIoWidthFifoUint16, EfiPciIoWidthFifoUint32, EfiPciIoWidthFifoUint64, EfiPciIoWidthFillUint8,
       EfiPciIoWidthFillUint16, EfiPciIoWidthFillUint32, EfiPciIoWidthFillUint64, EfiPciIoWidthMaximum});
  ExpectFromZero("EFI_PCI_IO_PROTOCOL_OPERATION", {EfiPciIoOperationBusMasterRead, EfiPciIoOperationBusMasterWrite,
                                                   EfiPciIoOperationBusMasterCommonBuffer, EfiPciIoOperationMaximum});
  ExpectFromZero(
      "EFI_PCI_IO_PROTOCOL_ATTRIBUTE_OPERATION",
      {EfiPciIoAttributeOperationGet, EfiPciIoAttributeOperationSet, EfiPciIoAttributeOperationEnable,
       EfiPciIoAttributeOperationDisable, EfiPciIoAttributeOperationSupported, EfiPciIoAttributeOperationMaximum});
  ExpectFromZero("EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_WIDTH",
                 {EfiPciWidthUint8, EfiPciWidthUint16, EfiPciWidthUint32, EfiPciWidthUint64, EfiPciWidthFifoUint8,
                  EfiPciWidthFifoUint16, EfiPciWidthFifoUint32, EfiPciWidthFifoUint64, EfiPciWidthFillUint8,
                  EfiPciWidthFillUint16, EfiPciWidthFillUint32, EfiPciWidthFillUint64, EfiPciWidthMaximum});
  ExpectFromZero("EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_OPERATION",
                 {EfiPciOperationBusMasterRead, EfiPciOperationBusMasterWrite, EfiPciOperationBusMasterCommonBuffer,
                  EfiPciOperationBusMasterRead64, EfiPciOperationBusMasterWrite64,
                  EfiPciOperationBusMasterCommonBuffer64, EfiPciOperationMaximum});
  ExpectFromZero("EFI_RESET_TYPE", {EfiResetCold, EfiResetWarm, EfiResetShutdown, EfiResetPlatformSpecific});
  ExpectFromZero("EFI_SIMPLE_NETWORK_STATE", {EfiSimpleNetworkStopped, EfiSimpleNetworkStarted,
                                              EfiSimpleNetworkInitialized, EfiSimpleNetworkMaxState});
  ExpectFromZero("EFI_USB_HC_STATE",
                 {EfiUsbHcStateHalt, EfiUsbHcStateOperational, EfiUsbHcStateSuspend, EfiUsbHcStateMaximum});
  ExpectFromZero("EFI_USB_DATA_DIRECTION", {EfiUsbDataIn, EfiUsbDataOut, EfiUsbNoData});
}

TEST(Enumerations, FeaturesOfAUsbPortAreThoseOfTheHubClass) {
  EXPECT_EQ(EfiUsbPortEnable, 1);
  EXPECT_EQ(EfiUsbPortSuspend, 2);
  EXPECT_EQ(EfiUsbPortReset, 4);
  EXPECT_EQ(EfiUsbPortPower, 8);
  EXPECT_EQ(EfiUsbPortOwner, 13);
  EXPECT_EQ(EfiUsbPortConnectChange, 16);
  EXPECT_EQ(EfiUsbPortEnableChange, 17);
  EXPECT_EQ(EfiUsbPortSuspendChange, 18);
  EXPECT_EQ(EfiUsbPortOverCurrentChange, 19);
  EXPECT_EQ(EfiUsbPortResetChange, 20);
}

}  // namespace
}  // namespace bds
