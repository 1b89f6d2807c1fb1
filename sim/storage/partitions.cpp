#include "sim/storage/partitions.h"

namespace sim {

EFI_STATUS DiscoverPartitions(const BlockSource& medium, std::vector<Partition>& partitions) {
  constexpr EFI_STATUS (*kSchemes[])(const BlockSource&, std::vector<Partition>&) = {
      ReadGptPartitions, ReadElToritoImages, ReadMbrPartitions};
  EFI_STATUS damage = EFI_SUCCESS;
  for (const auto read : kSchemes) {
    partitions.clear();
    const EFI_STATUS status = read(medium, partitions);
    if (!EFI_ERROR(status)) return EFI_SUCCESS;
    if (status != EFI_NOT_FOUND && damage == EFI_SUCCESS) damage = status;
  }
  partitions.clear();
  return damage;
}

}  // namespace sim
