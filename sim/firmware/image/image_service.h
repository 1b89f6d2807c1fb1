// The image services (UEFI 2.10, 7.4): images loaded from device paths and buffers, started, left and unloaded, and
// ExitBootServices. Whether the code of an image runs that the machine found somewhere is a matter of policy.
#pragma once

#include <csetjmp>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/hii_package_list.h"
#include "platform/loaded_image.h"
#include "sim/firmware/image/loader_policy.h"
#include "sim/firmware/image/pe_image.h"
#include "sim/firmware/machine.h"
#include "sim/firmware/services/current.h"

namespace sim {

class ImageService : public CurrentModel<ImageService> {
 public:
  // A C++ function that stands for an image's code.
  using Builtin = std::function<EFI_STATUS(EFI_HANDLE image, EFI_SYSTEM_TABLE* table)>;

  // One StartImage call, for the summary of a boot.
  struct Start {
    EFI_HANDLE image = nullptr;
    std::string path;  // the loaded image's device path as text
    LoaderAction action = LoaderAction::Execute;
    bool ran = false;  // the code ran (to its end or to the boot's)
    EFI_STATUS status = EFI_SUCCESS;
    bool finished = false;  // false while it runs, and for good when the boot ended in it
    std::string reason;     // why its code did not run, where that is not the policy's plain answer
  };
  // One LoadImage call that failed.
  struct LoadFailure {
    std::string path;
    EFI_STATUS status = EFI_SUCCESS;
    std::string reason;
  };

  // Fills LoadImage, StartImage, Exit, UnloadImage and ExitBootServices of the machine's table.
  explicit ImageService(Machine& machine);
  ~ImageService();

  LoaderPolicy& Policy() { return policy_; }

  // Bytes that LoadImage takes for this function wherever they come from: put them into a firmware volume or a disk
  // image. The name shows in summaries.
  std::vector<std::byte> RegisterBuiltin(std::string name, Builtin function);
  // An image handle with a loaded image protocol and the function as its code; StartImage runs it.
  EFI_HANDLE CreateBuiltinImage(const std::string& name, Builtin function, const DevicePath& path = {});

  // The handle of a driver that is linked into this program: loaded image protocol, and the package list protocol when
  // there is one (the bytes must outlive the machine). It is not started through StartImage.
  EFI_HANDLE CreateLinkedDriverImage(std::u16string_view loadOptions,
                                     const EFI_HII_PACKAGE_LIST_HEADER* packages = nullptr);
  // Loads a driver's image file as the DXE core does, without a parent. Null with the reason in Error().
  EFI_HANDLE LoadDriverImage(std::span<const std::byte> file, const DevicePath& path, std::u16string_view loadOptions);

  // The services.
  EFI_STATUS Load(bool bootPolicy, EFI_HANDLE parent, EFI_DEVICE_PATH_PROTOCOL* path, const void* source,
                  UINTN sourceSize, EFI_HANDLE* handle);
  EFI_STATUS StartImage(EFI_HANDLE handle, UINTN* exitDataSize, CHAR16** exitData);
  EFI_STATUS Exit(EFI_HANDLE handle, EFI_STATUS status, UINTN dataSize, CHAR16* data);
  EFI_STATUS Unload(EFI_HANDLE handle);
  EFI_STATUS ExitBootServices(EFI_HANDLE handle, UINTN mapKey);

  // Called behind each new entry of Starts() and of LoadFailures().
  void SetAttemptHandlers(std::function<void()> onStart, std::function<void()> onLoadFailure) {
    onStart_ = std::move(onStart);
    onLoadFailure_ = std::move(onLoadFailure);
  }

  // Called behind each LoadImage call that gave an image.
  void SetLoadHandler(std::function<void(EFI_HANDLE image)> handler) { onLoaded_ = std::move(handler); }

  // Asked before ExitBootServices ends the boot: the variable store switches to its runtime rules there.
  void SetExitBootServicesHandler(std::function<void()> handler) { exitHandler_ = std::move(handler); }

  bool IsImage(EFI_HANDLE handle) const { return images_.contains(handle); }
  // The writable sections of an image, where its variables lie; empty for built-in images.
  std::vector<std::span<const std::byte>> WritableMemory(EFI_HANDLE handle) const;
  // Code that the machine found somewhere, such as a loader: neither the driver under test nor the simulator's own.
  bool IsForeign(EFI_HANDLE handle) const;
  // The image's path as text; empty for an unknown handle.
  std::string PathText(EFI_HANDLE handle) const;
  const std::vector<Start>& Starts() const { return starts_; }
  const std::vector<LoadFailure>& LoadFailures() const { return failures_; }
  const std::string& Error() const { return error_; }
  // Images that were started and neither returned nor were left.
  std::size_t Running() const { return running_.size(); }

 private:
  struct Image;
  // Where an image's bytes come from.
  struct Source {
    EFI_STATUS status = EFI_NOT_FOUND;
    std::vector<std::byte> bytes;
    EFI_HANDLE device = nullptr;
    DevicePath whole;     // the full path
    DevicePath filePath;  // what is left of it at the device
  };
  struct Calls;

  Image* Find(EFI_HANDLE handle) const;
  EFI_STATUS Fail(EFI_DEVICE_PATH_PROTOCOL* path, EFI_STATUS status, std::string reason);
  EFI_STATUS Make(Source& source, EFI_HANDLE parent, EFI_HANDLE* handle);
  EFI_STATUS Publish(std::unique_ptr<Image> image, EFI_HANDLE* handle);
  EFI_STATUS Place(Image& image, std::span<const std::byte> file);
  void Describe(Image& image, EFI_HANDLE parent, const Source& source);
  EFI_STATUS Decide(const Image& image, Start& start) const;
  EFI_STATUS Run(Image& image);
  EFI_STATUS RunCode(Image& image);
  [[noreturn]] void HandOver(Image& image);
  static std::vector<std::byte> LoadOptionsOf(const Image& image);
  SystemTakenOver DescribeSystem(const std::vector<std::byte>& loadOptions);
  EFI_STATUS AfterRun(Image& image, EFI_STATUS status, UINTN* exitDataSize, CHAR16** exitData);
  void Discard(Image& image);
  void SignalBootStart();

  Machine& machine_;
  LoaderPolicy policy_;
  std::map<EFI_HANDLE, std::unique_ptr<Image>> images_;
  std::vector<Image*> running_;
  std::map<std::string, Builtin> builtins_;
  std::vector<Start> starts_;
  std::vector<LoadFailure> failures_;
  std::string error_;
  std::function<void()> exitHandler_;
  std::function<void()> onStart_;
  std::function<void()> onLoadFailure_;
  std::function<void(EFI_HANDLE image)> onLoaded_;
};

}  // namespace sim
