#include "flexboot/target_builder.h"

#include "flexboot/policy_teller.h"
#include "flexboot/policy_values.h"
#include "flexboot/state.h"

namespace bds {
namespace {

// A number of the identity block, with its tag. The present flag is the byte behind it.
struct IdentityRow {
  const char* Name;
  UINTN Offset;
};
constexpr IdentityRow kIdentityNumbers[] = {
    {"PciVid", offsetof(POLICY_PCI_IDENTITY, PciVid)},
    {"PciDid", offsetof(POLICY_PCI_IDENTITY, PciDid)},
    {"PciSubVid", offsetof(POLICY_PCI_IDENTITY, PciSubVid)},
    {"PciSubDid", offsetof(POLICY_PCI_IDENTITY, PciSubDid)},
    {"PciClassId", offsetof(POLICY_PCI_IDENTITY, PciClassId)},
    {"PciSubClassId", offsetof(POLICY_PCI_IDENTITY, PciSubClassId)},
};
constexpr IdentityRow kIdentityAddress[] = {
    {"PciSegment", offsetof(POLICY_PCI_IDENTITY, PciSegment)},
    {"PciBus", offsetof(POLICY_PCI_IDENTITY, PciBus)},
    {"PciDevice", offsetof(POLICY_PCI_IDENTITY, PciDevice)},
    {"PciFunction", offsetof(POLICY_PCI_IDENTITY, PciFunction)},
};

void TellMapping(TargetType type, UINT64 slot, UINT64 order) {
  switch (type) {
    case TargetType::LAN:
      TellPolicyReader("Mapping VNIC instance (%d:%d) to address\n", slot, order);
      return;
    case TargetType::ISCSI:
      TellPolicyReader("Mapping iSCSI vNIC instance (%d:%d) to address ", slot, order);
      return;
    default:
      TellPolicyReader("Mapping vHBA instance (%d:%d) to address ", slot, order);
      return;
  }
}

// One target at work.
class TargetBuilder {
 public:
  TargetBuilder(FLEXBOOT_TARGET& entry, const TARGET_CONTEXT& context, POLICY_TARGET& target)
      : entry_(entry), context_(context), target_(target) {}

  bool Add(const TagRow& row) {
    const UINT8* value = entry_.Data + row.Offset;
    const UINT8 present = value[row.Size];
    switch (row.Form) {
      case TagForm::Number:
        return present == 0 || AddPolicyTag(row.Name, *value, target_);
      case TagForm::Flag:
        return present == 0 || AddPolicyTag(row.Name, *value != 0 ? 1 : 0, target_);
      case TagForm::Text:
        return present == 0 || AppendPolicyTag(target_.TagList, row.Name, reinterpret_cast<const char*>(value));
      case TagForm::Mac:
        return present == 0 || !context_.UefiMode || AddMac(row.Name, value);
      case TagForm::PciIdentity:
        return AddPciIdentityTags(target_, Identity());
      case TagForm::VirtualAdapter:
        return AddVirtualAdapter();
      case TagForm::ForgetBusWhenManaged:
        ForgetBusWhenManaged();
        return true;
    }
    return true;
  }

 private:
  POLICY_PCI_IDENTITY& Identity() { return *reinterpret_cast<POLICY_PCI_IDENTITY*>(entry_.Data); }

  bool AddMac(const char* name, const UINT8* mac) {
    char text[sizeof("00:00:00:00:00:00")];
    FormatAscii(text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return AppendPolicyTag(target_.TagList, name, text);
  }

  bool AddVirtualAdapter() {
    const auto type = static_cast<TargetType>(entry_.Type);
    const VirtualAdapterFields& fields = VirtualAdapterFieldsOf(type);
    const auto slot = LoadUnaligned<UINT64>(entry_.Data + fields.Slot);
    if (entry_.Data[fields.OnVirtualAdapter] == 1) {
      const auto order = LoadUnaligned<UINT64>(entry_.Data + fields.Order);
      TellMapping(type, slot, order);
      FindOrlaFunction(slot, order, Identity(), gFlexBoot.VeyraOrlaList.get());
      const POLICY_PCI_IDENTITY& found = Identity();
      TellPolicyReader("%x %x %x\n", found.PciBus, found.PciDevice, found.PciFunction);
      return true;
    }
    if (!context_.Managed) {
      return true;
    }
    Identity().PciBus = 0xFF;
    return AddPolicyTag("PhysicalAdaptorSlotNum", slot, target_);
  }

  void ForgetBusWhenManaged() {
    if (context_.Managed && entry_.Data[offsetof(POLICY_LOCAL_HDD, SlotIdPresent)] != 0) {
      DebugPrint("Local Storage Target: invalidate BUS \n");
      Identity().PciBus = 0xFF;
    }
  }

  FLEXBOOT_TARGET& entry_;
  const TARGET_CONTEXT& context_;
  POLICY_TARGET& target_;
};

}  // namespace

bool AddPciIdentityTags(POLICY_TARGET& target, const POLICY_PCI_IDENTITY& data) {
  const auto* bytes = reinterpret_cast<const UINT8*>(&data);
  for (const IdentityRow& row : kIdentityNumbers) {
    const auto number = LoadUnaligned<UINT16>(bytes + row.Offset);
    if (bytes[row.Offset + sizeof(number)] != 0 && !AddPolicyTag(row.Name, number, target)) {
      return false;
    }
  }
  if (data.PciAddressPresent == 0) {
    return true;
  }
  for (const IdentityRow& row : kIdentityAddress) {
    const UINT8 number = bytes[row.Offset];
    if (static_cast<INT8>(number) >= 0 && !AddPolicyTag(row.Name, number, target)) {
      return false;
    }
  }
  return true;
}

bool BuildPolicyTarget(FLEXBOOT_TARGET& entry, const TargetRow& row, const TARGET_CONTEXT& context,
                       POLICY_TARGET_LIST& targets) {
  POLICY_TARGET* target = NewPolicyTarget(targets);
  if (target == nullptr) {
    return false;
  }
  if (static_cast<TargetType>(entry.Type) == TargetType::NVMEAny) {
    DebugPrint("Case NVMEAny\n");
  }
  target->AllowMultiple = row.AllowMultiple;
  StoreText(target->Name, sizeof(target->Name), row.Name);
  if (!AddPolicyTag(row.FirstTag, 0, *target)) {
    return false;
  }
  TargetBuilder builder(entry, context, *target);
  for (const TagRow& tag : row.Tags) {
    if (!builder.Add(tag)) {
      return false;
    }
  }
  return true;
}

}  // namespace bds
