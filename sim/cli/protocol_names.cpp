#include "sim/cli/protocol_names.h"

#include "platform/block_io.h"
#include "platform/bus_specific_driver_override.h"
#include "platform/component_name.h"
#include "platform/device_path.h"
#include "platform/disk_info.h"
#include "platform/disk_io.h"
#include "platform/driver_binding.h"
#include "platform/driver_health.h"
#include "platform/ext_scsi_pass_thru.h"
#include "platform/firmware_volume2.h"
#include "platform/graphics_output.h"
#include "platform/load_file.h"
#include "platform/loaded_image.h"
#include "platform/network_interface_identifier.h"
#include "platform/pci_io.h"
#include "platform/pci_root_bridge_io.h"
#include "platform/pci_slot_info.h"
#include "platform/scsi_io.h"
#include "platform/scsi_pass_thru.h"
#include "platform/serial_io.h"
#include "platform/signals.h"
#include "platform/simple_file_system.h"
#include "platform/simple_network.h"
#include "platform/simple_text_in.h"
#include "platform/simple_text_out.h"
#include "platform/usb2_host_controller.h"
#include "platform/usb_io.h"
#include "platform/veyra_pci_io_properties.h"
#include "sim/firmware/guid_text.h"

namespace sim {
namespace {

struct ProtocolName {
  EFI_GUID guid;
  const char* name;
};
constexpr ProtocolName kProtocols[] = {
    {ProtocolGuid<EFI_BLOCK_IO_PROTOCOL>, "BlockIo"},
    {ProtocolGuid<EFI_BUS_SPECIFIC_DRIVER_OVERRIDE_PROTOCOL>, "BusSpecificDriverOverride"},
    {ProtocolGuid<EFI_COMPONENT_NAME2_PROTOCOL>, "ComponentName2"},
    {ProtocolGuid<EFI_COMPONENT_NAME_PROTOCOL>, "ComponentName"},
    {ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL>, "DevicePath"},
    {ProtocolGuid<EFI_DISK_INFO_PROTOCOL>, "DiskInfo"},
    {ProtocolGuid<EFI_DISK_IO_PROTOCOL>, "DiskIo"},
    {ProtocolGuid<EFI_DRIVER_BINDING_PROTOCOL>, "DriverBinding"},
    {ProtocolGuid<EFI_DRIVER_HEALTH_PROTOCOL>, "DriverHealth"},
    {ProtocolGuid<EFI_EXT_SCSI_PASS_THRU_PROTOCOL>, "ExtScsiPassThru"},
    {ProtocolGuid<EFI_FIRMWARE_VOLUME2_PROTOCOL>, "FirmwareVolume2"},
    {ProtocolGuid<EFI_GRAPHICS_OUTPUT_PROTOCOL>, "GraphicsOutput"},
    {ProtocolGuid<EFI_LOADED_IMAGE_PROTOCOL>, "LoadedImage"},
    {ProtocolGuid<EFI_LOAD_FILE2_PROTOCOL>, "LoadFile2"},
    {ProtocolGuid<EFI_LOAD_FILE_PROTOCOL>, "LoadFile"},
    {ProtocolGuid<EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL>, "NetworkInterfaceIdentifier"},
    {ProtocolGuid<EFI_PCI_IO_PROTOCOL>, "PciIo"},
    {ProtocolGuid<EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL>, "PciRootBridgeIo"},
    {ProtocolGuid<PCI_SLOT_INFO>, "PciSlotInfo"},
    {ProtocolGuid<EFI_SCSI_IO_PROTOCOL>, "ScsiIo"},
    {ProtocolGuid<EFI_SCSI_PASS_THRU_PROTOCOL>, "ScsiPassThru"},
    {ProtocolGuid<EFI_SERIAL_IO_PROTOCOL>, "SerialIo"},
    {ProtocolGuid<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL>, "SimpleFileSystem"},
    {ProtocolGuid<EFI_SIMPLE_NETWORK_PROTOCOL>, "SimpleNetwork"},
    {ProtocolGuid<EFI_SIMPLE_TEXT_INPUT_EX_PROTOCOL>, "SimpleTextInputEx"},
    {ProtocolGuid<EFI_SIMPLE_TEXT_INPUT_PROTOCOL>, "SimpleTextInput"},
    {ProtocolGuid<EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL>, "SimpleTextOutput"},
    {ProtocolGuid<EFI_USB2_HC_PROTOCOL>, "Usb2Hc"},
    {ProtocolGuid<EFI_USB_IO_PROTOCOL>, "UsbIo"},
    {ProtocolGuid<VEYRA_PCI_IO_PROPERTIES>, "VeyraPciIoProperties"},
    {gEfiPartTypeSystemPartGuid, "EfiSystemPartition"},
};

}  // namespace

std::string ProtocolShortName(const EFI_GUID& guid) {
  for (const ProtocolName& each : kProtocols) {
    if (each.guid == guid) {
      return each.name;
    }
  }
  return GuidText(guid);
}

}  // namespace sim
