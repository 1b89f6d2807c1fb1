// Both transports number their units in eight bytes, the highest first; only the older Fibre Channel node holds an
// integer.
#include "sim/bus/san_nodes.h"

#include <cstring>

namespace sim {
namespace {

template <std::size_t N>
void PutBigEndian(UINT8 (&field)[N], std::uint64_t value) {
  for (std::size_t i = N; i-- > 0; value >>= 8) field[i] = static_cast<UINT8>(value);
}

}  // namespace

DevicePath FibrePath(DevicePath path, const FibreChannelLun& unit) {
  FIBRECHANNEL_DEVICE_PATH node{};
  PutBigEndian(node.WWN, unit.portName);
  if (unit.node == FibreNode::FibreEx) {
    PutBigEndian(node.Lun, unit.lun);
    return path.Append(MESSAGING_DEVICE_PATH, MSG_FIBRECHANNELEX_DP, node);
  }
  std::memcpy(node.Lun, &unit.lun, sizeof(node.Lun));
  return path.Append(MESSAGING_DEVICE_PATH, MSG_FIBRECHANNEL_DP, node);
}

DevicePath IscsiPath(DevicePath path, const IscsiLun& unit) {
  constexpr UINT16 kNoAuthentication = 2 << 10;
  ISCSI_DEVICE_PATH node{};
  node.LoginOption = kNoAuthentication;
  PutBigEndian(node.Lun, unit.lun);
  node.TargetPortalGroupTag = unit.portalGroup;
  return path.IPv4().Append(MESSAGING_DEVICE_PATH, MSG_ISCSI_DP, node, std::as_bytes(std::span(unit.target)));
}

}  // namespace sim
