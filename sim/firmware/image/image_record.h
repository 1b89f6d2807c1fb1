// What the image services keep of one image; shared by the files that implement them.
#pragma once

#include <algorithm>
#include <csetjmp>

#include "platform/hii_package_list.h"
#include "sim/firmware/image/image_service.h"

namespace sim {

struct ImageService::Image {
  EFI_HANDLE handle = nullptr;
  EFI_LOADED_IMAGE_PROTOCOL protocol{};
  DevicePath path;
  DevicePath filePath;
  std::u16string ownOptions;  // of the images that the simulator itself makes
  PeImage pe;
  EFI_PHYSICAL_ADDRESS pages = 0;
  UINTN pageCount = 0;
  std::vector<PageRights> rights;
  EFI_HII_PACKAGE_LIST_HEADER* packages = nullptr;
  Builtin builtin;
  bool pathInstalled = false;
  bool started = false;
  bool linked = false;     // the driver in this program: runs without being started
  bool underTest = false;  // the driver's image file: whoever names it wants it to run
  // While it runs.
  jmp_buf leave;
  EFI_TPL tpl = TPL_APPLICATION;
  EFI_STATUS exitStatus = EFI_SUCCESS;
  UINTN exitDataSize = 0;
  CHAR16* exitData = nullptr;

  // Code that the machine found somewhere; everything else was given to the simulator to run.
  bool IsForeign() const { return !builtin && !linked && !underTest; }
  bool IsApplication() const { return pe.subsystem == kSubsystemApplication; }
  // A page that would have to be writable and executable is never granted to an image that says it needs none.
  bool CannotRun() const { return std::find(rights.begin(), rights.end(), PageRights::WriteExecute) != rights.end(); }
  std::span<std::byte> Memory() const { return {reinterpret_cast<std::byte*>(pages), pe.imageSize}; }
};

}  // namespace sim
