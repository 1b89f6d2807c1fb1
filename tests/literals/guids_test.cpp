// The GUIDs of the platform's declarations and of the driver's own records, written once more: as text, and from the
// standards (UEFI 2.10, PI 1.7, Intel CSM 0.98) and this platform's interfaces, not from the headers. A program
// built on a wrong digit would agree with itself; nothing else would agree with it.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "bmc/ipmi_variables.h"
#include "bmc/restored_marker.h"
#include "bootopt/boot_option.h"
#include "bootopt/legacy_dev_order.h"
#include "bootopt/names/string_package.h"
#include "bootopt/vendor_nodes.h"
#include "inventory/mac_database.h"
#include "osopt/default_order.h"
#include "platform/acpi_s3_save.h"
#include "platform/bds_arch.h"
#include "platform/block_io.h"
#include "platform/boot_script_save.h"
#include "platform/bus_specific_driver_override.h"
#include "platform/component_name.h"
#include "platform/csm_policy.h"
#include "platform/device_path_text.h"
#include "platform/device_path_utilities.h"
#include "platform/disk_info.h"
#include "platform/disk_io.h"
#include "platform/driver_binding.h"
#include "platform/driver_configuration2.h"
#include "platform/driver_family_override.h"
#include "platform/driver_health.h"
#include "platform/dxe_services.h"
#include "platform/ext_scsi_pass_thru.h"
#include "platform/firmware_performance.h"
#include "platform/firmware_volume2.h"
#include "platform/flexboot_protocol.h"
#include "platform/form_browser2.h"
#include "platform/graphics_output.h"
#include "platform/hii_database.h"
#include "platform/hii_package_list.h"
#include "platform/hii_string.h"
#include "platform/hob.h"
#include "platform/ipmi_transport.h"
#include "platform/legacy_bios.h"
#include "platform/legacy_bios_ext.h"
#include "platform/legacy_region.h"
#include "platform/load_file.h"
#include "platform/loaded_image.h"
#include "platform/memory_type_information.h"
#include "platform/network_interface_identifier.h"
#include "platform/pci_io.h"
#include "platform/pci_root_bridge_io.h"
#include "platform/pci_slot_info.h"
#include "platform/platform_driver_override.h"
#include "platform/scsi_io.h"
#include "platform/scsi_pass_thru.h"
#include "platform/serial_io.h"
#include "platform/setup_front_end.h"
#include "platform/setup_variable.h"
#include "platform/signals.h"
#include "platform/simple_file_system.h"
#include "platform/simple_network.h"
#include "platform/simple_text_in.h"
#include "platform/simple_text_out.h"
#include "platform/status_code.h"
#include "platform/system_table.h"
#include "platform/unicode_collation.h"
#include "platform/usb2_host_controller.h"
#include "platform/usb_io.h"
#include "platform/usb_support.h"
#include "platform/veyra_hobs.h"
#include "platform/veyra_pci_io_properties.h"
#include "platform/zephan_mode.h"

namespace {

std::string Text(const EFI_GUID& guid) {
  char text[40];
  std::snprintf(text, sizeof(text), "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X", guid.Data1, guid.Data2,
                guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3], guid.Data4[4], guid.Data4[5],
                guid.Data4[6], guid.Data4[7]);
  return text;
}

struct Row {
  const char* text;
  EFI_GUID guid;
};

void Compare(std::span<const Row> rows) {
  for (const Row& row : rows) {
    EXPECT_EQ(Text(row.guid), row.text);
  }
}

TEST(Guids, ProtocolsOfUefi) {
  const Row rows[] = {
      {"09576E91-6D3F-11D2-8E39-00A0C969723B", ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL>},
      {"964E5B21-6459-11D2-8E39-00A0C969723B", ProtocolGuid<EFI_BLOCK_IO_PROTOCOL>},
      {"CE345171-BA0B-11D2-8E4F-00A0C969723B", ProtocolGuid<EFI_DISK_IO_PROTOCOL>},
      {"964E5B22-6459-11D2-8E39-00A0C969723B", ProtocolGuid<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL>},
      {"56EC3091-954C-11D2-8E3F-00A0C969723B", ProtocolGuid<EFI_LOAD_FILE_PROTOCOL>},
      {"4006C0C1-FCB3-403E-996D-4A6C8724E06D", ProtocolGuid<EFI_LOAD_FILE2_PROTOCOL>},
      {"5B1B31A1-9562-11D2-8E3F-00A0C969723B", ProtocolGuid<EFI_LOADED_IMAGE_PROTOCOL>},
      {"BC62157E-3E33-4FEC-9920-2D3B36D750DF", gEfiLoadedImageDevicePathProtocolGuid},
      {"18A031AB-B443-4D1A-A5C0-0C09261E9F71", ProtocolGuid<EFI_DRIVER_BINDING_PROTOCOL>},
      {"107A772C-D5E1-11D4-9A46-0090273FC14D", ProtocolGuid<EFI_COMPONENT_NAME_PROTOCOL>},
      {"6A7A5CFF-E8D9-4F70-BADA-75AB3025CE14", ProtocolGuid<EFI_COMPONENT_NAME2_PROTOCOL>},
      {"6B30C738-A391-11D4-9A3B-0090273FC14D", ProtocolGuid<EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL>},
      {"3BC1B285-8A15-4A82-AABF-4D7D13FB3265", ProtocolGuid<EFI_BUS_SPECIFIC_DRIVER_OVERRIDE_PROTOCOL>},
      {"B1EE129E-DA36-4181-91F8-04A4923766A7", ProtocolGuid<EFI_DRIVER_FAMILY_OVERRIDE_PROTOCOL>},
      {"2A534210-9280-41D8-AE79-CADA01A2B127", ProtocolGuid<EFI_DRIVER_HEALTH_PROTOCOL>},
      {"BFD7DC1D-24F1-40D9-82E7-2E09BB6B4EBE", ProtocolGuid<EFI_DRIVER_CONFIGURATION2_PROTOCOL>},
      {"0379BE4E-D706-437D-B037-EDB82FB772A4", ProtocolGuid<EFI_DEVICE_PATH_UTILITIES_PROTOCOL>},
      {"8B843E20-8132-4852-90CC-551A4E4A7F1C", ProtocolGuid<EFI_DEVICE_PATH_TO_TEXT_PROTOCOL>},
      {"05C99A21-C70F-4AD2-8A5F-35DF3343F51E", ProtocolGuid<EFI_DEVICE_PATH_FROM_TEXT_PROTOCOL>},
      {"387477C1-69C7-11D2-8E39-00A0C969723B", ProtocolGuid<EFI_SIMPLE_TEXT_INPUT_PROTOCOL>},
      {"DD9E7534-7762-4698-8C14-F58517A625AA", ProtocolGuid<EFI_SIMPLE_TEXT_INPUT_EX_PROTOCOL>},
      {"387477C2-69C7-11D2-8E39-00A0C969723B", ProtocolGuid<EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL>},
      {"BB25CF6F-F1D4-11D2-9A0C-0090273FC1FD", ProtocolGuid<EFI_SERIAL_IO_PROTOCOL>},
      {"9042A9DE-23DC-4A38-96FB-7ADED080516A", ProtocolGuid<EFI_GRAPHICS_OUTPUT_PROTOCOL>},
      {"2F707EBB-4A1A-11D4-9A38-0090273FC14D", ProtocolGuid<EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL>},
      {"4CF5B200-68B8-4CA5-9EEC-B23E3F50029A", ProtocolGuid<EFI_PCI_IO_PROTOCOL>},
      {"A59E8FCF-BDA0-43BB-90B1-D3732ECAA877", ProtocolGuid<EFI_SCSI_PASS_THRU_PROTOCOL>},
      {"143B7632-B81B-4CB7-ABD3-B625A5B9BFFE", ProtocolGuid<EFI_EXT_SCSI_PASS_THRU_PROTOCOL>},
      {"932F47E6-2362-4002-803E-3CD54B138F85", ProtocolGuid<EFI_SCSI_IO_PROTOCOL>},
      {"3E745226-9818-45B6-A2AC-D7CD0E8BA2BC", ProtocolGuid<EFI_USB2_HC_PROTOCOL>},
      {"2B2F68D6-0CD2-44CF-8E8B-BBA20B1B5B75", ProtocolGuid<EFI_USB_IO_PROTOCOL>},
      {"A19832B9-AC25-11D3-9A2D-0090273FC14D", ProtocolGuid<EFI_SIMPLE_NETWORK_PROTOCOL>},
      {"E18541CD-F755-4F73-928D-643C8A79B229", ProtocolGuid<EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL>},
      {"1ACED566-76ED-4218-BC81-767F1F977A89", ProtocolGuid<EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL_OLD>},
      {"1D85CD7F-F43D-11D2-9A0C-0090273FC14D", ProtocolGuid<EFI_UNICODE_COLLATION_PROTOCOL>},
      {"A4C751FC-23AE-4C3E-92E9-4964CF63F349", gEfiUnicodeCollation2ProtocolGuid},
      {"EF9FC172-A1B2-4693-B327-6D32FC416042", ProtocolGuid<EFI_HII_DATABASE_PROTOCOL>},
      {"0FD96974-23AA-4CDC-B9CB-98D17750322A", ProtocolGuid<EFI_HII_STRING_PROTOCOL>},
      {"6A1EE763-D47A-43B4-AABE-EF1DE2AB56FC", gEfiHiiPackageListProtocolGuid},
      {"B9D4C360-BCFB-4F9B-9298-53C136982258", ProtocolGuid<EFI_FORM_BROWSER2_PROTOCOL>},
  };
  Compare(rows);
}

TEST(Guids, TablesGroupsAndInformationOfUefi) {
  const Row rows[] = {
      {"8BE4DF61-93CA-11D2-AA0D-00E098032B8C", gEfiGlobalVariableGuid},
      {"7CE88FB3-4BD7-4679-87A8-A8D8DEE50D2B", gEfiEventReadyToBootGuid},
      {"27ABF055-B1B8-4C26-8048-748F37BAA2DF", gEfiEventExitBootServicesGuid},
      {"02CE967A-DD7E-4FFC-9EE7-810CF0470880", gEfiEndOfDxeEventGroupGuid},
      {"2A571201-4966-47F6-8B86-F31E41F32F10", gEfiEventLegacyBootGuid},
      {"09576E92-6D3F-11D2-8E39-00A0C969723B", gEfiFileInfoGuid},
      {"09576E93-6D3F-11D2-8E39-00A0C969723B", gEfiFileSystemInfoGuid},
      {"DB47D7D3-FE81-11D3-9A35-0090273FC14D", gEfiFileSystemVolumeLabelInfoIdGuid},
      {"F22FC20C-8CF4-45EB-8E06-AD4E50B95DD3", gEfiDriverHealthFormsetGuid},
      {"C12A7328-F81F-11D2-BA4B-00A0C93EC93B", gEfiPartTypeSystemPartGuid},
      {"7739F24C-93D7-11D4-9A3A-0090273FC14D", gEfiHobListGuid},
      {"05AD34BA-6F02-4214-952E-4DA0398E2BB9", gEfiDxeServicesTableGuid},
      {"4C19049F-4137-4DD3-9C10-8B97A83FFDFA", gEfiMemoryTypeInformationGuid},
  };
  Compare(rows);
}

TEST(Guids, ProtocolsOfThePlatformInitialisationAndTheCsm) {
  const Row rows[] = {
      {"665E3FF6-46CC-11D4-9A38-0090273FC14D", ProtocolGuid<EFI_BDS_ARCH_PROTOCOL>},
      {"D2B2B828-0826-48A7-B3DF-983C006024F0", ProtocolGuid<EFI_STATUS_CODE_PROTOCOL>},
      {"220E73B6-6BDB-4413-8405-B974B108619A", ProtocolGuid<EFI_FIRMWARE_VOLUME2_PROTOCOL>},
      {"125F2DE1-FB85-440C-A54C-4D99358A8D38", ProtocolGuid<EFI_ACPI_S3_SAVE_PROTOCOL>},
      {"E857CAF6-C046-45DC-BE3F-EE0765FBA887", gEfiBootScriptSaveProtocolGuid},
      {"D432A67F-14DC-484B-B3BB-3F0291849327", ProtocolGuid<EFI_DISK_INFO_PROTOCOL>},
      {"5E948FE3-26D3-42B5-AF17-610287188DEC", gEfiDiskInfoIdeInterfaceGuid},
      {"08F74BAA-EA36-41D9-9521-21A70F8780BC", gEfiDiskInfoScsiInterfaceGuid},
      {"CB871572-C11A-47B5-B492-675EAFA77727", gEfiDiskInfoUsbInterfaceGuid},
      {"9E498932-4ABC-45AF-A34D-0247787BE7C6", gEfiDiskInfoAhciInterfaceGuid},
      {"3AB14680-5D3F-4A4D-BCDC-CC380018C7F7", gEfiDiskInfoNvmeInterfaceGuid},
      {"DB9A1E3D-45CB-4ABB-853B-E5387FDB2E2D", ProtocolGuid<EFI_LEGACY_BIOS_PROTOCOL>},
      {"70101EAF-0085-440C-B356-8EE36FEF24F0", ProtocolGuid<LEGACY_REGION_PROTOCOL>},
      {"8E008510-9BB1-457D-9F70-897ABA865DB9", ProtocolGuid<LEGACY_BIOS_EXT_PROTOCOL>},
      {"2362EA9C-84E5-4DFF-83BC-B5ACECB57CBB", kThunkDriverMarkGuid},
      {"542D6248-4198-4960-9F59-2384646D63B4", ProtocolGuid<CSM_POLICY_HOOK_A>},
      {"DC14E697-775A-4C3B-A11A-EDC38E1BE3E6", ProtocolGuid<CSM_POLICY_HOOK_B>},
      {"4A1D0E66-5271-4E22-83FE-90921B748213", gEfiDxeIpmiTransportProtocolGuid},
      {"711C703F-C285-4B10-A3B0-36ECBD3C8BE2", gEfiCapsuleVendorGuid},
  };
  Compare(rows);
}

TEST(Guids, SignalsAndInterfacesOfThisPlatform) {
  const Row rows[] = {
      {"3AA83745-9454-4F7A-A7C0-90DBD02FAB8E", kConnectDriversSignalGuid},
      {"DBC9FD21-FAD8-45B0-9E78-27158867CC93", kAllDriversConnectedSignalGuid},
      {"60FF8964-E906-41D0-AFED-F241E974E08E", kDxeSmmReadyToLockGuid},
      {"A25F2FCD-C168-4E77-AD3E-A488ACB725AB", kCompletePowerManagementSignalGuid},
      {"D088A413-0A70-4217-BA55-9A3CB65C41B3", kExitPmAuthSignalGuid},
      {"120D28AA-6630-46F0-8157-C0ADC2383BF5", kBootStartSignalGuid},
      {"3677770F-EFB2-43B2-B8AE-B302E9604882", kMemoryTypeUpdateSignalGuid},
      {"EF9A3971-C1A0-4A93-BD40-5AA165F2DC3A", kConsoleOutStartedGuid},
      {"2DF1E051-906D-4EFF-869D-24E65378FB9E", kConsoleInStartedGuid},
      {"8A91B1E1-56C7-4ADC-ABEB-1C2CA1729EFF", ProtocolGuid<SETUP_FRONT_END_PROTOCOL>},
      {"2AD8E2D2-2E91-4CD1-95F5-E78FE5EBE316", ProtocolGuid<USB_SUPPORT_PROTOCOL>},
      {"4EE1EF78-02D7-412C-AF4A-BF37CFD74DEF", VEYRA_ZEPHAN_MODE_GUID},
      {"F3B23900-E57B-E56E-FEE8-E3E7C7DCDFBD", ProtocolGuid<FLEXBOOT_ORDER_HEADER>},
      {"F3B23900-E57B-F67F-FEF9-E3E7C7DCDFCE", ProtocolGuid<ACTUAL_BOOT_ORDER>},
      {"8873BA17-F982-43A6-A126-8B79F3D7564E", kPolicyStaleSignalGuid},
      {"FA7023AD-1CFC-4F49-B54D-9FE7F2E118F8", ProtocolGuid<VEYRA_PCI_IO_PROPERTIES>},
      {"E2A128FF-E57B-E56E-EDE8-E3E7C7DCDFAC", ProtocolGuid<PCI_SLOT_INFO>},
      {"230381F9-CF93-4D4F-AD80-1B53228EBDE8", gVeyraMemoryHobGuid},
      {"B7B3BD0D-28AA-4E2E-BA5D-A5AF76A9C888", gVeyraBrightmereTypeHobGuid},
  };
  Compare(rows);
}

TEST(Guids, VariablesAndNodesOfThisPlatform) {
  const Row rows[] = {
      {"EC87D643-EBA4-4BB5-A1E5-3F3E36B20DA9", kSetupGuid},
      {"77DE3127-9564-4500-B4B5-656821B37232", kVeyraNvramDataGuid},
      {"C811FA38-42C8-4579-A9BB-60E94EDDFB34", kFrontEndSetupGuid},
      {"EF152FB4-7B2F-427D-BDB4-7E0A05826E64", kBootFlowGuid},
      {"01368881-C4AD-4B1D-B631-D57A8EC8DB6B", kFirmwarePerformanceGuid},
      {"9DAE27E6-9CC9-4972-BCDB-824573A2C2F6", kPolicyVariablesGuid},
      {"9DAE27E6-9CC9-4972-BCDB-824573A2C2F6", bds::kBootOptionRestoredGuid},
      {"842680F2-1A9C-48E6-A433-BE9ACB0DD438", bds::kIpmiVariablesGuid},
      {"3DD0DE67-02D7-412C-974A-A0CCDDEEEEEE", bds::kMacDatabaseGuid},
      {"A56074DB-65FE-45F7-BD21-2D2BDD8E9652", bds::kLegacyDevOrderGuid},
      {"3C4EAD08-45AE-4315-8D15-A60EAA8CAF69", bds::kDefaultLegacyDevOrderGuid},
      {"45CF35F6-0D6E-4D04-856A-0370A5B16F53", bds::kDefaultBootOrderGuid},
      {"8F4B8F82-9B91-4028-86E6-F4DB7D4C1DFF", bds::kStringPackageListGuid},
      {"5023B95C-DB26-429B-A648-BD47664C8012", bds::kBuiltInApplicationGuid},
      {"99E275E7-75A0-4B37-A2E6-C5385E6C00CB", bds::kOrphanMaskGuid},
      {"1DB184AE-81F5-4E72-8544-2BAB0C2CAC5C", bds::kLegacyLocationGuid},
      {"2D6447EF-3BC9-41A0-AC19-4D51D01B4CE6", bds::kDeviceNameGuid},
      {"22DA46D1-6556-4948-B253-2C3EB2E532AF", bds::kVeyraStandinGuid},
  };
  Compare(rows);
}

}  // namespace
