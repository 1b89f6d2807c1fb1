// The compatibility support module: Legacy BIOS protocol, its vendor extension, legacy region protocol, and the BBS
// table of 256 packed entries with its strings in real-mode memory at their true addresses.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/legacy_bios.h"
#include "platform/legacy_bios_ext.h"
#include "platform/legacy_region.h"
#include "sim/csm/bbs_description.h"
#include "sim/firmware/machine.h"

namespace sim {

class Csm {
 public:
  static constexpr std::size_t kEntries = 256;
  static constexpr std::size_t kFirstFreeIndex = 25;  // below lie the places of on-board controllers

  // The protocols are installed by the constructor; the entries given by hand appear at once, those of devices when
  // the option ROMs are shadowed, USB devices when the USB support is asked for them.
  Csm(Machine& machine, const CsmDescription& description);
  ~Csm();
  Csm(const Csm&) = delete;
  Csm& operator=(const Csm&) = delete;

  BBS_TABLE& Entry(std::size_t index) { return table_[index]; }
  // Entries up to and with the last one in use.
  std::uint16_t Count() const;
  unsigned ShadowCalls() const { return shadowCalls_; }
  // Functions whose legacy option ROM has been run, each once a boot.
  std::size_t OptionRomsRun() const { return optionRomsRun_.size(); }

  // A call of LegacyBoot.
  struct Attempt {
    int index = -1;  // of the entry with priority 0; -1 when there was none
    std::string text;
    EFI_STATUS status = EFI_SUCCESS;
  };
  const std::vector<Attempt>& Attempts() const { return attempts_; }
  std::function<void()> onAttempt;  // called behind each new one, before it ends the boot
  // An error: what LegacyBoot answers. Otherwise it ends the boot.
  EFI_STATUS bootStatus = EFI_SUCCESS;
  // An entry for a human.
  std::string Describe(std::size_t index) const;

  // Adds the entries of devices present now that have none yet.
  void AddDeviceEntries(bool usb);
  // Copies a text into legacy memory once and returns segment << 16 | offset; 0 for an empty text.
  std::uint32_t PlaceString(const std::string& text);

 private:
  struct Interfaces;  // the three protocols, each leading back to this object
  friend struct CsmCalls;

  void AddDescribed(const BbsEntryDescription& entry);
  std::size_t FreeIndex(std::size_t from) const;
  bool HasHandle(EFI_HANDLE handle) const;
  void AddDevice(EFI_HANDLE handle, std::uint16_t type, const std::string& text);
  void RunOptionRoms();
  EFI_STATUS Boot(const BBS_BBS_DEVICE_PATH* path);

  Machine& machine_;
  CsmDescription description_;
  BBS_TABLE* table_;  // in legacy memory, as the drive data are
  HDD_INFO* hddInfo_;
  std::vector<Attempt> attempts_;
  unsigned shadowCalls_ = 0;
  std::set<EFI_HANDLE> optionRomsRun_;
  std::map<std::string, std::uint32_t> strings_;
  std::unique_ptr<Interfaces> interfaces_;
};

}  // namespace sim
