#include "flexboot/policy_record.h"

#include "flexboot/policy_format.h"

namespace bds {
namespace {

template <UINTN N>
void Terminate(CHAR8 (&text)[N]) {
  text[N - 1] = 0;
}

void TerminateFields(std::span<const LayoutField> fields, FLEXBOOT_TARGET& target) {
  for (const LayoutField& field : fields) {
    if (field.How == Conversion::Text) {
      target.Data[field.Offset + field.Size - 1] = 0;
    }
  }
}

}  // namespace

bool IsWholeRecord(Bytes bytes) {
  if (bytes.size() < sizeof(FLEXBOOT_ORDER_HEADER)) {
    return false;
  }
  const auto targets = static_cast<UINT8>(bytes[offsetof(FLEXBOOT_ORDER_HEADER, NumBootTargets)]);
  return bytes.size() == FlexBootOrderSize(targets);
}

void TerminateTexts(FLEXBOOT_ORDER_HEADER& order) {
  Terminate(order.Version);
  Terminate(order.ServiceProfile);
  Terminate(order.BootPolicyName);
  Terminate(order.BootType);
  Terminate(order.BootPolicyUniqueId);
  for (FLEXBOOT_TARGET& target : PolicyTargets(order)) {
    Terminate(target.RN);
    if (target.Type < kTargetTypeCount) {
      TerminateFields(kTargetTypes[target.Type].Fields, target);
      if (!kTargetTypes[target.Type].Pci.empty()) {
        Terminate(reinterpret_cast<POLICY_PCI_IDENTITY*>(target.Data)->PciAddressText);
      }
    }
  }
}

}  // namespace bds
