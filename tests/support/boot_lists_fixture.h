// Tests on the option and device lists: fresh lists on the simulated machine, emptied at the end.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "bootopt/boot_lists.h"
#include "support/services.h"
#include "support/text.h"
#include "tests/support/firmware.h"

namespace fake {

class BootListsTest : public testing::Test {
 protected:
  BootListsTest() { bds::StartFresh(bds::gBootOptions); }
  ~BootListsTest() override {
    while (bds::BootOptionList.First != nullptr) {
      bds::DeleteBootOption(bds::BootOptionList, bds::BootOptionList.First);
    }
    while (bds::BootDeviceList.First != nullptr) {
      bds::DeleteBootDevice(bds::BootDeviceList, bds::BootDeviceList.First);
    }
    bds::ForgetUnloadedOptions();
  }

  bds::BOOT_OPTION& AddOption(const char16_t* description = nullptr, const Data& paths = {}) {
    bds::BOOT_OPTION* option = bds::CreateBootOption(bds::BootOptionList);
    if (description != nullptr) {
      option->Description = bds::CopyText(description, bds::TextLength(description));
    }
    if (!paths.empty()) {
      option->FilePathList.reset(static_cast<EFI_DEVICE_PATH_PROTOCOL*>(bds::AllocatePool(paths.size())));
      std::memcpy(option->FilePathList.get(), paths.data(), paths.size());
      option->FilePathListLength = paths.size();
    }
    return *option;
  }

  std::string TakeLog() { return Fw.TakeLog(); }

  Firmware Fw;
};

// The list's options in order; checks that the links agree with one another and with the count.
inline std::vector<bds::BOOT_OPTION*> OptionsOf(const bds::BOOT_OPTION_LIST& list) {
  std::vector<bds::BOOT_OPTION*> options;
  bds::BOOT_OPTION* previous = nullptr;
  for (bds::BOOT_OPTION* option = list.First; option != nullptr; option = option->Next) {
    EXPECT_EQ(option->Previous, previous);
    previous = option;
    options.push_back(option);
  }
  EXPECT_EQ(list.Last, previous);
  EXPECT_EQ(list.Count, options.size());
  return options;
}

}  // namespace fake
