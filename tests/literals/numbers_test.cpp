// Numbers and names that the driver shares with hardware, firmware and its own past boots, written once more from the
// standards and this platform's interfaces; see guids_test.cpp.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "bmc/boot_options_parameters.h"
#include "bmc/bt_file.h"
#include "bmc/bt_registers.h"
#include "bmc/ipmi_transport.h"
#include "bmc/ipmi_variables.h"
#include "bmc/pm_timer.h"
#include "bmc/restored_marker.h"
#include "bootopt/bbs_table.h"
#include "bootopt/groups.h"
#include "bootopt/load_option.h"
#include "core/legacy_io_nodes.h"
#include "core/pci_handles.h"
#include "platform/dxe_services.h"
#include "platform/firmware_performance.h"
#include "platform/hob.h"
#include "platform/legacy_bios.h"
#include "platform/memory_type_information.h"
#include "platform/pci_config.h"
#include "platform/pci_io.h"
#include "platform/setup_variable.h"
#include "platform/usb_io.h"
#include "support/debug_print.h"
#include "support/variables.h"
#include "vboot/boot_flow.h"

namespace {

struct Row {
  const char* what;
  std::uint64_t written;
  std::uint64_t used;
};

void Compare(std::span<const Row> rows) {
  for (const Row& row : rows) {
    EXPECT_EQ(row.used, row.written) << row.what;
  }
}

// An EISA identifier in the 32 bits of an ACPI node: three letters of five bits, then the number (UEFI 2.10, 10.3.3).
std::uint32_t EisaId(const std::string& name) {
  std::uint32_t letters = 0;
  for (const char letter : name.substr(0, 3)) {
    letters = (letters << 5) | static_cast<std::uint32_t>(letter - 'A' + 1);
  }
  return (static_cast<std::uint32_t>(std::stoul(name.substr(3), nullptr, 16)) << 16) | letters;
}

TEST(Numbers, DevicePathNodes) {
  const Row rows[] = {
      {"hardware", 1, HARDWARE_DEVICE_PATH},
      {"PCI", 1, HW_PCI_DP},
      {"hardware vendor", 4, HW_VENDOR_DP},
      {"ACPI", 2, ACPI_DEVICE_PATH},
      {"ACPI device", 1, ACPI_DP},
      {"messaging", 3, MESSAGING_DEVICE_PATH},
      {"ATAPI", 1, MSG_ATAPI_DP},
      {"SCSI", 2, MSG_SCSI_DP},
      {"USB", 5, MSG_USB_DP},
      {"messaging vendor", 10, MSG_VENDOR_DP},
      {"MAC", 11, MSG_MAC_ADDR_DP},
      {"IPv4", 12, MSG_IPV4_DP},
      {"IPv6", 13, MSG_IPV6_DP},
      {"UART", 14, MSG_UART_DP},
      {"USB class", 15, MSG_USB_CLASS_DP},
      {"USB WWID", 16, MSG_USB_WWID_DP},
      {"logical unit", 17, MSG_LOGICAL_UNIT_DP},
      {"SATA", 18, MSG_SATA_DP},
      {"SAS", 22, MSG_SASEX_DP},
      {"NVMe namespace", 23, MSG_NVME_NAMESPACE_DP},
      {"media", 4, MEDIA_DEVICE_PATH},
      {"hard drive", 1, MEDIA_HARDDRIVE_DP},
      {"CD-ROM", 2, MEDIA_CDROM_DP},
      {"media vendor", 3, MEDIA_VENDOR_DP},
      {"file path", 4, MEDIA_FILEPATH_DP},
      {"firmware file", 6, MEDIA_PIWG_FW_FILE_DP},
      {"firmware volume", 7, MEDIA_PIWG_FW_VOL_DP},
      {"BIOS boot", 5, BBS_DEVICE_PATH},
      {"BBS", 1, BBS_BBS_DP},
      {"end", 0x7F, END_DEVICE_PATH_TYPE},
      {"end of instance", 1, END_INSTANCE_DEVICE_PATH_SUBTYPE},
      {"end of path", 0xFF, END_ENTIRE_DEVICE_PATH_SUBTYPE},
  };
  Compare(rows);
}

TEST(Numbers, LegacyInputOutput) {
  const Row rows[] = {
      {"keyboard", EisaId("PNP0303"), bds::kPs2Keyboard},
      {"mouse", EisaId("PNP0F03"), bds::kPs2Mouse},
      {"serial port", EisaId("PNP0501"), bds::kSerialPort},
      {"floppy controller", EisaId("PNP0604"), bds::kFloppyController},
      {"older floppy controller", EisaId("PNP0700"), bds::kOldFloppyController},
  };
  Compare(rows);
}

TEST(Numbers, PciClasses) {
  const Row rows[] = {
      {"mass storage", 1, bds::kPciClassMassStorage},
      {"network", 2, bds::kPciClassNetwork},
      {"display", 3, bds::kPciClassDisplay},
      {"bridge", 6, bds::kPciClassBridge},
      {"ISA bridge", 1, bds::kPciSubclassIsaBridge},
      {"serial bus", 12, bds::kPciClassSerialBus},
      {"USB", 3, bds::kPciSubclassUsb},
      {"vendor", 0, PCI_VENDOR_ID_OFFSET},
      {"device", 2, PCI_DEVICE_ID_OFFSET},
      {"class", 9, PCI_CLASSCODE_OFFSET},
      {"subclass", 10, PCI_SUBCLASS_OFFSET},
      {"base class", 11, PCI_BASE_CLASS_OFFSET},
      {"I/O", 0x100, EFI_PCI_IO_ATTRIBUTE_IO},
      {"memory", 0x200, EFI_PCI_IO_ATTRIBUTE_MEMORY},
      {"bus master", 0x400, EFI_PCI_IO_ATTRIBUTE_BUS_MASTER},
      {"decoding", 0x700, EFI_PCI_DEVICE_ENABLE},
      {"embedded", 0x2000, EFI_PCI_IO_ATTRIBUTE_EMBEDDED_DEVICE},
  };
  Compare(rows);
}

TEST(Numbers, UsbMassStorage) {
  const Row rows[] = {
      {"class", 8, USB_CLASS_MASS_STORAGE},
      {"SCSI commands", 6, USB_MASS_STORE_SCSI},
      {"CBI with interrupt", 0, USB_MASS_STORE_CBI0},
      {"CBI", 1, USB_MASS_STORE_CBI1},
      {"bulk only", 0x50, USB_MASS_STORE_BOT},
      {"configuration", 2, USB_DESC_TYPE_CONFIG},
      {"clear feature", 1, USB_REQ_CLEAR_FEATURE},
      {"get descriptor", 6, USB_REQ_GET_DESCRIPTOR},
      {"class request", 0x20, USB_REQ_TYPE_CLASS},
      {"to the interface", 1, USB_TARGET_INTERFACE},
      {"to the endpoint", 2, USB_TARGET_ENDPOINT},
      {"halt", 0, USB_FEATURE_ENDPOINT_HALT},
      {"stall", 2, EFI_USB_ERR_STALL},
      {"timeout", 0x40, EFI_USB_ERR_TIMEOUT},
  };
  Compare(rows);
}

TEST(Numbers, RecordsOfNvram) {
  const Row rows[] = {
      {"Setup", 167, kSetupSize},
      {"driver health", 1, kSetupDriverHealthCheck},
      {"health in quiet boot", 2, kSetupHealthInQuietBoot},
      {"option ROM policy", 130, kSetupOptionRomPolicy},
      {"of bytes 130 to 135", 6, kSetupOptionRomPolicySize},
      {"strict group order", 157, kSetupStrictGroupOrder},
      {"EFI boot options", 160, kSetupEfiBootOptionsEnable},
      {"UEFI mode", 161, kSetupUefiMode},
      {"STBU mode", 163, kSetupStbuMode},
      {"VeyraNVRAMData", 280, kVeyraNvramDataSize},
      {"boot mode", 0, kVeyraBootMode},
      {"NUVKUISetup", 81, kFrontEndSetupSize},
      {"quiet boot", 80, kFrontEndQuietBoot},
      {"non-volatile, boot", 3, bds::kNonVolatileBoot},
      {"non-volatile, boot, runtime", 7, bds::kNonVolatileBootRuntime},
      {"boot, runtime", 6, bds::kVolatileBootRuntime},
      {"active", 1, LOAD_OPTION_ACTIVE},
      {"force reconnect", 2, LOAD_OPTION_FORCE_RECONNECT},
      {"hidden", 8, LOAD_OPTION_HIDDEN},
      {"hot key F12", 0x1001, bds::kBootFlowF12},
      {"hot key F8", 0x1002, bds::kBootFlowF8},
      {"hot key F7", 0x1003, bds::kBootFlowF7},
      {"a performance record, as text FBPT", 'F' | 'B' << 8 | 'P' << 16 | 'T' << 24, kPerformanceSignature},
  };
  Compare(rows);
}

TEST(Numbers, NamesOfVariables) {
  const std::pair<const char16_t*, const CHAR16*> rows[] = {
      {u"Setup", kSetupName},
      {u"VeyraNVRAMData", kVeyraNvramDataName},
      {u"NUVKUISetup", kFrontEndSetupName},
      {u"BootFlow", kBootFlowName},
      {u"FPDT_Volatile", kFirmwarePerformanceName},
      {u"MemoryTypeInformation", kMemoryTypeInformationName},
      {u"PreviousMemoryTypeInformation", kPreviousMemoryTypeInformationName},
      {u"IpmiBootFlags", bds::kIpmiBootFlagsName},
      {u"BootOrderBeforeIpmiBoot", bds::kSavedBootOrderName},
      {u"IpmiMatchBootOptionData", bds::kSavedBootOptionName},
      {u"BootOptionRestored", bds::kBootOptionRestoredName},
  };
  for (const auto& [written, used] : rows) {
    EXPECT_EQ(std::u16string(used), written);
  }
}

TEST(Numbers, OptionsAndGroups) {
  const Row rows[] = {
      {"firmware marker 00 00 42 4F, the 42", 0x42, std::to_integer<std::uint64_t>(bds::kFirmwareMarker[2])},
      {"and the 4F", 0x4F, std::to_integer<std::uint64_t>(bds::kFirmwareMarker[3])},
      {"group marker", 0x47, std::to_integer<std::uint64_t>(bds::kGroupMarker[2])},
      {"member marker", 0x4E, std::to_integer<std::uint64_t>(bds::kMemberMarker[2])},
      {"no number", 0xFFFF, bds::kNoBootOptionNumber},
      {"no BBS entry", 0xFFFF, bds::kNoBbsIndex},
      {"unassigned", 0xFFFFFFFF, bds::kUnassigned},
      {"between priorities", 256, bds::kOptionPriorityStep},
      {"floppy group", 0, bds::kGroupFloppy},
      {"hard disk group", 1, bds::kGroupHardDisk},
      {"CD-ROM group", 2, bds::kGroupCdRom},
      {"PCMCIA group", 3, bds::kGroupPcmcia},
      {"USB group", 4, bds::kGroupUsb},
      {"network group", 5, bds::kGroupNetwork},
      {"BEV group", 6, bds::kGroupBev},
      {"UEFI group", 7, bds::kGroupUefi},
      {"built-in application group", 8, bds::kGroupBuiltInApplication},
      {"first UEFI option", 0x107, bds::kFirstUefiGroup},
      {"empty entry", 0xFFFF, bds::kBbsEmpty},
      {"entry set aside", 0xFFFC, bds::kBbsSetAside},
      {"entries", 256, bds::kBbsTableEntries},
      {"an entry", 69, sizeof(BBS_TABLE)},
      {"IBV1", 61, offsetof(BBS_TABLE, IBV1)},
      {"device type", 20, offsetof(BBS_TABLE, DeviceType)},
      {"status flags", 22, offsetof(BBS_TABLE, StatusFlags)},
      {"description", 28, offsetof(BBS_TABLE, DescStringOffset)},
  };
  Compare(rows);
}

TEST(Numbers, TheBmcsInterfaces) {
  const Row rows[] = {
      {"control register", 0x620, bds::kBtControlPort},
      {"buffer register", 0x621, bds::kBtBufferPort},
      {"interrupt mask", 0x622, bds::kBtInterruptMaskPort},
      {"PM timer", 0x408, bds::kPmTimerPort},
      {"CLR_WR_PTR", 0x01, bds::BT_CLR_WR_PTR},
      {"CLR_RD_PTR", 0x02, bds::BT_CLR_RD_PTR},
      {"H2B_ATN", 0x04, bds::BT_H2B_ATN},
      {"B2H_ATN", 0x08, bds::BT_B2H_ATN},
      {"H_BUSY", 0x40, bds::BT_H_BUSY},
      {"lock", 0x10, bds::BT_FILE_LOCK},
      {"create", 6, bds::BT_CREATE_FILE},
      {"read", 7, bds::BT_READ_PIECE},
      {"write", 8, bds::BT_WRITE_PIECE},
      {"close", 9, bds::BT_CLOSE_FILE},
      {"open", 12, bds::BT_OPEN_FILE},
      {"rename", 16, bds::BT_RENAME_FILE},
      {"close a variable's file", 18, bds::BT_CLOSE_VARIABLE_FILE},
      {"file bytes of an exchange", 59, bds::MAX_BT_PIECE_SIZE},
      {"data of a full piece", 61, bds::MAX_BT_READ_SIZE},
      {"where file bytes begin", 2, bds::BT_FILE_DATA_OFFSET},
      {"wait behind a close, microseconds", 200000, bds::kBtSettleTime},
      {"chassis", 0x00, bds::kIpmiChassis},
      {"OEM", 0x36, bds::kIpmiOem},
      {"set in progress", 0, bds::kSetInProgress},
      {"boot info acknowledge", 4, bds::kBootInfoAcknowledge},
      {"boot flags", 5, bds::kBootFlags},
      {"block size of the boot order table", 0x78, bds::kBotBlockSize},
      {"block of the boot order table", 0x7D, bds::kBotBlock},
      {"answer of the boot flags", 7, bds::kBootFlagsAnswerSize},
      {"data behind version and selector", 2, bds::kParameterData},
  };
  Compare(rows);
}

TEST(Numbers, HandOffAndMemory) {
  const Row rows[] = {
      {"handoff block", 1, EFI_HOB_TYPE_HANDOFF},
      {"GUID block", 4, EFI_HOB_TYPE_GUID_EXTENSION},
      {"end of the list", 0xFFFF, EFI_HOB_TYPE_END_OF_HOB_LIST},
      {"S4 resume", 0x05, BOOT_ON_S4_RESUME},
      {"flash update", 0x12, BOOT_ON_FLASH_UPDATE},
      {"recovery", 0x20, BOOT_IN_RECOVERY_MODE},
      {"present", std::uint64_t{1} << 56, EFI_MEMORY_PRESENT},
      {"initialised", std::uint64_t{2} << 56, EFI_MEMORY_INITIALIZED},
      {"tested", std::uint64_t{4} << 56, EFI_MEMORY_TESTED},
      {"the end of a list of memory types", 14, EfiMaxMemoryType},
      {"debug mask", 0x80000046, bds::DEBUG_DEFAULT_MASK},
      {"level of the line before a step", 0x20, bds::DEBUG_LEVEL_STEP},
  };
  Compare(rows);
}

TEST(Numbers, StatusCodes) {
  const Row rows[] = {
      {"load error", 1, EFI_LOAD_ERROR - EfiErrorBit},
      {"invalid parameter", 2, EFI_INVALID_PARAMETER - EfiErrorBit},
      {"unsupported", 3, EFI_UNSUPPORTED - EfiErrorBit},
      {"buffer too small", 5, EFI_BUFFER_TOO_SMALL - EfiErrorBit},
      {"not ready", 6, EFI_NOT_READY - EfiErrorBit},
      {"device error", 7, EFI_DEVICE_ERROR - EfiErrorBit},
      {"write protected", 8, EFI_WRITE_PROTECTED - EfiErrorBit},
      {"out of resources", 9, EFI_OUT_OF_RESOURCES - EfiErrorBit},
      {"no media", 12, EFI_NO_MEDIA - EfiErrorBit},
      {"not found", 14, EFI_NOT_FOUND - EfiErrorBit},
      {"access denied", 15, EFI_ACCESS_DENIED - EfiErrorBit},
      {"no response", 16, EFI_NO_RESPONSE - EfiErrorBit},
      {"timeout", 18, EFI_TIMEOUT - EfiErrorBit},
      {"already started", 20, EFI_ALREADY_STARTED - EfiErrorBit},
      {"aborted", 21, EFI_ABORTED - EfiErrorBit},
      {"security violation", 26, EFI_SECURITY_VIOLATION - EfiErrorBit},
      {"the error bit", std::uint64_t{1} << 63, EfiErrorBit},
  };
  Compare(rows);
}

}  // namespace
