// The step that creates boot options for the loaders that the policy names, on every volume that holds them.
#include "bootopt/names/device_path_text.h"
#include "flexboot/loader_text.h"
#include "flexboot/path_options.h"
#include "flexboot/state.h"
#include "flexboot/steps.h"
#include "platform/device_path_text.h"
#include "platform/simple_file_system.h"
#include "support/debug_print.h"
#include "support/device_path.h"
#include "support/protocols.h"
#include "support/text.h"

namespace bds {
namespace {

constexpr UINTN kGuidTextLength = 36;

// The volumes that a target's loader may be on; one that is ruled out becomes null.
struct CANDIDATES {
  PoolPtr<EFI_HANDLE> Handles;
  UINTN Count = 0;

  std::span<EFI_HANDLE> All() const { return {Handles.get(), Count}; }
};

bool ConvertGuid(const char* text, EFI_GUID& guid) {
  EFI_DEVICE_PATH_FROM_TEXT_PROTOCOL* converter = nullptr;
  if (EFI_ERROR(LocateProtocol(converter))) {
    DebugPrint("No dev path from text proto.\n");
    return false;
  }
  DebugPrint("input GUID string is %a\n", text);
  CHAR16 node[kGuidTextLength + sizeof("VenHw()\\")];
  FormatUtf16(node, "VenHw(%a)\\", text);
  const PoolPtr<DevicePath> path(converter->ConvertTextToDevicePath(node));
  if (!IsNode(path.get(), HARDWARE_DEVICE_PATH, HW_VENDOR_DP) || NodeLength(path.get()) < sizeof(VENDOR_DEVICE_PATH)) {
    DebugPrint("GUID coversion failed\n");
    return false;
  }
  guid = LoadUnaligned<VENDOR_DEVICE_PATH>(path.get()).Guid;
  DebugPrint("Converted GUID is %g\n", &guid);
  return true;
}

bool IsOnPartition(EFI_HANDLE handle, const EFI_GUID& guid) {
  constexpr UINT8 kGptSignature = 2;
  const DevicePath* path = DevicePathOf(handle);
  if (path == nullptr) {
    return false;
  }
  PoolPtr<char> text;
  if (!EFI_ERROR(DevicePathToText(path, text))) {
    DebugPrint("Input path %a\n", text.get());
  }
  const DevicePath* node = FindNode(path, MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP);
  if (!IsHardDriveNode(node)) {
    DebugPrint("No hard drive node on path\n");
    return false;
  }
  const auto drive = LoadUnaligned<HARDDRIVE_DEVICE_PATH>(node);
  return drive.SignatureType == kGptSignature && EqualMemory(drive.Signature, &guid, sizeof(guid));
}

void FilterByPartition(const char* text, const CANDIDATES& candidates) {
  if (TextLength(text) > kGuidTextLength) {
    DebugPrint("Malformed GUID text\n");
    return;
  }
  EFI_GUID guid{};
  if (!ConvertGuid(text, guid)) {
    return;
  }
  for (EFI_HANDLE& handle : candidates.All()) {
    if (handle != nullptr && !IsOnPartition(handle, guid)) {
      handle = nullptr;
    }
  }
}

// What the tags of one target say of its loader; the texts are the tags'.
struct LOADER {
  const char* Path = nullptr;
  const char* Name = nullptr;
  const char* Description = nullptr;
};

void StoreSanText(const POLICY_TAG& tag) {
  for (UINTN i = 0; i < kSanTextCount; ++i) {
    if (TextEqual(tag.Name, kSanTags[i])) {
      SanLoaderData(static_cast<INT8>(i), tag.Value);
    }
  }
}

LOADER ReadTags(const POLICY_TARGET& target, const CANDIDATES& candidates) {
  LOADER loader;
  for (const POLICY_TAG* tag = target.TagList.First; tag != nullptr; tag = tag->Next) {
    DebugPrint("Start element loop\n");
    if (TextEqual(tag->Name, "UniquePartitionGUID")) {
      FilterByPartition(tag->Value, candidates);
    } else if (TextEqual(tag->Name, "BootLoaderPath")) {
      loader.Path = tag->Value;
      DebugPrint("1 BootLoaderPath %a\n", loader.Path);
    } else if (TextEqual(tag->Name, "BootLoaderName")) {
      loader.Name = tag->Value;
      DebugPrint("1 BootLoaderName %a\n", loader.Name);
    } else if (TextEqual(tag->Name, "DeviceName")) {
      loader.Description = tag->Value;
    } else {
      StoreSanText(*tag);
    }
  }
  return loader;
}

EFI_STATUS CreateOptionsOf(const POLICY_TARGET& target, const HandleBuffer& volumes) {
  DebugPrint("Start target loop\n");
  SanLoaderData(SAN_FORGET);
  DebugPrint("Making copy of devices\n");
  CANDIDATES candidates{AllocateArray<EFI_HANDLE>(volumes.size()), volumes.size()};
  if (!candidates.Handles) {
    return EFI_OUT_OF_RESOURCES;
  }
  CopyMemory(candidates.Handles.get(), volumes.begin(), volumes.size() * sizeof(EFI_HANDLE));
  const LOADER loader = ReadTags(target, candidates);
  const EFI_STATUS status = CreatePathBasedBootOption(loader.Path, loader.Name, loader.Description, candidates.All());
  DebugPrint("NumberOfDevices %d, TestDevices 0x%x\n", candidates.Count, candidates.Handles.get());
  SanLoaderData(candidates.All());
  DebugPrint("Freeing copy of devices buffer\n");
  return status;
}

}  // namespace

void GenerateUefiPolicyOptionsEntry() {
  DebugPrint("Hello from GenerateUefiPolicyOptions!\n");
  if (!gFlexBoot.mUefiParamTargets || gFlexBoot.LoadersWithdrawn != FALSE) {
    return;
  }
  HandleBuffer volumes;
  EFI_STATUS status = volumes.Locate(ProtocolGuid<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL>);
  DebugPrint("%r locating all FS handles.\n", status);
  DebugPrint("%d handles\n", volumes.size());
  if (volumes.empty()) {
    DebugPrint("No connected file systems to check\n");
    return;
  }
  for (const POLICY_TARGET* target = gFlexBoot.mUefiParamTargets.get()->First; target != nullptr;
       target = target->Next) {
    status = CreateOptionsOf(*target, volumes);
  }
  DebugPrint("Status %r creating option\n", status);
}

EFI_STATUS SanLoaderData(std::span<const EFI_HANDLE> volumes) {
  DebugPrint("SAN is \"special\": op %d\n", SAN_CREATE_OPTIONS);
  DebugPrint("NumDevs %d, testdevices 0x%x\n", volumes.size(), volumes.data());
  const auto& texts = gFlexBoot.SanLoader;
  EFI_STATUS status = CreatePathBasedBootOption(texts[SAN_PRI_LDR_PATH].get(), texts[SAN_PRI_LDR_NAME].get(),
                                                texts[SAN_PRI_LDR_DESC].get(), volumes);
  DebugPrint("Status from first op is %r\n", status);
  status = CreatePathBasedBootOption(texts[SAN_SEC_LDR_PATH].get(), texts[SAN_SEC_LDR_NAME].get(),
                                     texts[SAN_SEC_LDR_DESC].get(), volumes);
  DebugPrint("Status from second op is %r\n", status);
  return status;
}

}  // namespace bds
