// Starting an image, its two ways out, and unloading it. Nothing on the stack of these routines owns memory while
// foreign code runs above them: Exit, and the end of a boot, jump over them.
#include <fmt/format.h>

#include <cstring>

#include "platform/signals.h"
#include "sim/firmware/image/image_record.h"
#include "sim/firmware/image/machine_calls.h"

namespace sim {
namespace {

using EntryPoint = EFI_STATUS(EFIAPI*)(EFI_HANDLE, EFI_SYSTEM_TABLE*);

constexpr std::size_t kMaxLoadOptions = 64 * 1024;

}  // namespace

// Firmware installs this protocol when an operating system is about to start; its listeners write time stamps.
void ImageService::SignalBootStart() {
  MachineCalls calls(machine_);
  EFI_HANDLE handle = nullptr;
  if (!EFI_ERROR(calls.Install(&handle, kBootStartSignalGuid, nullptr))) {
    calls.Uninstall(handle, kBootStartSignalGuid, nullptr);
  }
}

void ImageService::HandOver(Image& image) {
  BootOutcome outcome;
  outcome.end = BootEnd::HandedOver;
  outcome.image = image.handle;
  outcome.path = image.path;
  outcome.text = "control went to " + starts_.back().path;
  outcome.loadOptions = LoadOptionsOf(image);
  machine_.EndBoot(std::move(outcome));
}

std::vector<std::byte> ImageService::LoadOptionsOf(const Image& image) {
  if (image.protocol.LoadOptions == nullptr) {
    return {};
  }
  const auto* options = static_cast<const std::byte*>(image.protocol.LoadOptions);
  return {options, options + std::min<std::size_t>(image.protocol.LoadOptionsSize, kMaxLoadOptions)};
}

// What starting this image means, written into its record; the status for LoaderAction::Answer.
EFI_STATUS ImageService::Decide(const Image& image, Start& start) const {
  LoaderRule rule = policy_.For(start.path);
  if (rule.action == LoaderAction::HandOver && !image.IsApplication()) {
    // A driver is no end of a boot, and whether its code may run is not for its own header to say.
    rule = {"", LoaderAction::Answer, EFI_ACCESS_DENIED};
    start.reason = "a driver from a medium, whose code was not to run";
  }
  if (rule.action == LoaderAction::Execute && machine_.LetsImagesReachTheHost()) {
    rule = {"", LoaderAction::Answer, EFI_UNSUPPORTED};
    start.reason = "this kernel cannot refuse an image's system calls (system call user dispatch)";
  }
  start.action = rule.action;
  return rule.status;
}

EFI_STATUS ImageService::StartImage(EFI_HANDLE handle, UINTN* exitDataSize, CHAR16** exitData) {
  Image* image = Find(handle);
  if (image == nullptr || image->started) {
    return EFI_INVALID_PARAMETER;
  }
  const std::size_t record = starts_.size();
  Start& entry = starts_.emplace_back();
  entry.image = handle;
  entry.path = PathText(handle);
  if (onStart_) {
    onStart_();
  }
  const EFI_STATUS answer = image->IsForeign() ? Decide(*image, starts_[record]) : EFI_SUCCESS;
  const LoaderAction action = starts_[record].action;
  const bool isLoader = image->IsForeign() && image->IsApplication();
  if (isLoader && action != LoaderAction::Answer && policy_.signalBootStart) {
    SignalBootStart();
  }
  image->started = true;
  if (action == LoaderAction::HandOver) {
    HandOver(*image);
  }
  starts_[record].ran = action == LoaderAction::Execute;
  EFI_STATUS status = action == LoaderAction::Execute ? Run(*image) : answer;
  status = AfterRun(*image, status, exitDataSize, exitData);
  starts_[record].status = status;
  starts_[record].finished = true;
  return status;
}

EFI_STATUS ImageService::Run(Image& image) {
  if (image.CannotRun()) {
    error_ = "the image wants memory that is writable and executable";
    return EFI_UNSUPPORTED;
  }
  image.tpl = machine_.Events().CurrentTpl();
  running_.push_back(&image);
  machine_.PushOwner(image.handle);
  const EFI_STATUS status = RunCode(image);
  machine_.PopOwner();
  running_.pop_back();
  if (machine_.Events().CurrentTpl() != image.tpl) {
    machine_.Counts().Complain("an image returned at another task priority than it was started at");
    machine_.Events().Restore(image.tpl);
  }
  return status;
}

// In a frame of its own, since Exit comes back to it by a jump.
__attribute__((noinline)) EFI_STATUS ImageService::RunCode(Image& image) {
  if (setjmp(image.leave) != 0) {
    return running_.back()->exitStatus;
  }
  if (image.builtin) {
    return image.builtin(image.handle, machine_.SystemTable());
  }
  const auto entry = reinterpret_cast<EntryPoint>(image.pages + image.pe.entryPoint);
  return entry(image.handle, machine_.SystemTable());
}

// Exit data goes to whoever started the image, or back to the pool when nobody wants it. An application, and a driver
// that failed, leave memory for good; a driver that succeeded stays.
EFI_STATUS ImageService::AfterRun(Image& image, EFI_STATUS status, UINTN* exitDataSize, CHAR16** exitData) {
  const bool wanted = exitDataSize != nullptr && exitData != nullptr;
  if (wanted) {
    *exitDataSize = image.exitData == nullptr ? 0 : image.exitDataSize;
    *exitData = image.exitData;
  } else if (image.exitData != nullptr) {
    static_cast<void>(machine_.BootServices()->FreePool(image.exitData));
  }
  image.exitData = nullptr;
  if (image.IsApplication() || EFI_ERROR(status)) {
    Discard(image);
  }
  return status;
}

EFI_STATUS ImageService::Exit(EFI_HANDLE handle, EFI_STATUS status, UINTN dataSize, CHAR16* data) {
  Image* image = Find(handle);
  if (image == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  if (!image->started) {
    Discard(*image);
    return EFI_SUCCESS;
  }
  if (running_.empty() || running_.back() != image) {
    return EFI_INVALID_PARAMETER;
  }
  image->exitStatus = status;
  image->exitDataSize = data == nullptr ? 0 : dataSize;
  image->exitData = data;
  longjmp(image->leave, 1);
}

EFI_STATUS ImageService::Unload(EFI_HANDLE handle) {
  Image* image = Find(handle);
  if (image == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  if (std::find(running_.begin(), running_.end(), image) != running_.end()) {
    return EFI_ACCESS_DENIED;  // its code is on the stack
  }
  if (image->started) {
    if (image->protocol.Unload == nullptr || image->linked) {
      return EFI_UNSUPPORTED;
    }
    const EFI_STATUS status = image->protocol.Unload(handle);
    if (EFI_ERROR(status)) {
      return status;
    }
  }
  // Its own unload routine may have left through another UnloadImage.
  if (Image* still = Find(handle)) {
    Discard(*still);
  }
  return EFI_SUCCESS;
}

void ImageService::Discard(Image& image) {
  MachineCalls calls(machine_);
  const EFI_HANDLE handle = image.handle;
  calls.CloseAllOf(handle);
  if (image.packages != nullptr) {
    calls.Uninstall(handle, gEfiHiiPackageListProtocolGuid, image.packages);
  }
  if (image.pathInstalled) {
    void* path = image.path.Empty() ? nullptr : image.path.Get();
    calls.Uninstall(handle, gEfiLoadedImageDevicePathProtocolGuid, path);
  }
  calls.Uninstall(handle, ProtocolGuid<EFI_LOADED_IMAGE_PROTOCOL>, &image.protocol);
  if (image.pages != 0) {
    calls.FreePages(image.pages, image.pageCount);
  }
  images_.erase(handle);
}

}  // namespace sim
