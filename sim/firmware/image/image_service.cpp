// Loading, starting and leaving images. An image's record holds everything that must survive a jump out of its code.
#include "sim/firmware/image/image_service.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>

#include "platform/hii_package_list.h"
#include "sim/firmware/image/image_record.h"
#include "sim/firmware/image/image_source.h"
#include "sim/firmware/image/linux_boot_parameters.h"
#include "sim/firmware/image/machine_calls.h"
#include "sim/firmware/services/device_path_text.h"
#include "sim/firmware/variables/variable_name_text.h"

namespace sim {
namespace {

constexpr std::string_view kBuiltinMark = "simulated built-in image ";

std::string Text(const DevicePath& path) {
  const auto text = DevicePathText(path.Bytes());
  std::string out;
  for (const char16_t c : text.value_or(u"(malformed)")) {
    out.push_back(c < 0x80 ? static_cast<char>(c) : '?');
  }
  return out;
}

struct MemoryTypes {
  EFI_MEMORY_TYPE code;
  EFI_MEMORY_TYPE data;
};
MemoryTypes TypesOf(std::uint16_t subsystem) {
  switch (subsystem) {
    case kSubsystemBootServiceDriver:
      return {EfiBootServicesCode, EfiBootServicesData};
    case kSubsystemRuntimeDriver:
      return {EfiRuntimeServicesCode, EfiRuntimeServicesData};
    default:
      return {EfiLoaderCode, EfiLoaderData};
  }
}

}  // namespace

struct ImageService::Calls {
  static ImageService& Service() { return *ImageService::Current(); }
  // Counts the call; the status that the fault script wants instead of the service's own.
  static std::optional<EFI_STATUS> Scripted(const char* name) { return Machine::Current().OnCall(name); }

  static EFI_STATUS EFIAPI LoadImage(BOOLEAN bootPolicy, EFI_HANDLE parent, EFI_DEVICE_PATH_PROTOCOL* path,
                                     VOID* source, UINTN size, EFI_HANDLE* handle) {
    if (const auto scripted = Scripted("LoadImage")) {
      return *scripted;
    }
    if (handle == nullptr || !Service().IsImage(parent)) {
      return EFI_INVALID_PARAMETER;
    }
    return Service().Load(bootPolicy != FALSE, parent, path, source, size, handle);
  }
  static EFI_STATUS EFIAPI StartImage(EFI_HANDLE handle, UINTN* size, CHAR16** data) {
    const auto scripted = Scripted("StartImage");
    return scripted ? *scripted : Service().StartImage(handle, size, data);
  }
  static EFI_STATUS EFIAPI Exit(EFI_HANDLE handle, EFI_STATUS status, UINTN size, CHAR16* data) {
    const auto scripted = Scripted("Exit");
    return scripted ? *scripted : Service().Exit(handle, status, size, data);
  }
  static EFI_STATUS EFIAPI UnloadImage(EFI_HANDLE handle) {
    const auto scripted = Scripted("UnloadImage");
    return scripted ? *scripted : Service().Unload(handle);
  }
  static EFI_STATUS EFIAPI ExitBootServices(EFI_HANDLE handle, UINTN key) {
    const auto scripted = Scripted("ExitBootServices");
    return scripted ? *scripted : Service().ExitBootServices(handle, key);
  }
};

ImageService::ImageService(Machine& machine) : machine_(machine) {
  EFI_BOOT_SERVICES* table = machine.BootServices();
  table->LoadImage = Calls::LoadImage;
  table->StartImage = Calls::StartImage;
  table->Exit = Calls::Exit;
  table->UnloadImage = Calls::UnloadImage;
  table->ExitBootServices = Calls::ExitBootServices;
  machine.SealTables();
}

ImageService::~ImageService() = default;

ImageService::Image* ImageService::Find(EFI_HANDLE handle) const {
  const auto found = images_.find(handle);
  return found != images_.end() ? found->second.get() : nullptr;
}

std::vector<std::byte> ImageService::RegisterBuiltin(std::string name, Builtin function) {
  const std::string mark = std::string(kBuiltinMark) + name;
  builtins_[mark] = std::move(function);
  const auto bytes = std::as_bytes(std::span(mark));
  return {bytes.begin(), bytes.end()};
}

EFI_STATUS ImageService::Fail(EFI_DEVICE_PATH_PROTOCOL* path, EFI_STATUS status, std::string reason) {
  error_ = reason;
  failures_.push_back({path == nullptr ? "" : Text(DevicePath::Copy(path)), status, std::move(reason)});
  if (onLoadFailure_) {
    onLoadFailure_();
  }
  return status;
}

void ImageService::Describe(Image& image, EFI_HANDLE parent, const Source& source) {
  image.path = source.whole;
  image.filePath = source.filePath;
  image.protocol.Revision = EFI_LOADED_IMAGE_PROTOCOL_REVISION;
  image.protocol.ParentHandle = parent;
  image.protocol.SystemTable = machine_.SystemTable();
  image.protocol.DeviceHandle = source.device;
  image.protocol.FilePath = image.filePath.Get();
  const MemoryTypes types = TypesOf(image.pe.subsystem);
  image.protocol.ImageCodeType = types.code;
  image.protocol.ImageDataType = types.data;
  image.protocol.ImageBase = reinterpret_cast<VOID*>(image.pages);
  image.protocol.ImageSize = image.pe.imageSize;
}

// Puts the image on a handle of its own; the record then belongs to the service.
EFI_STATUS ImageService::Publish(std::unique_ptr<Image> image, EFI_HANDLE* handle) {
  MachineCalls calls(machine_);
  EFI_STATUS status = calls.Install(&image->handle, ProtocolGuid<EFI_LOADED_IMAGE_PROTOCOL>, &image->protocol);
  if (!EFI_ERROR(status)) {
    // Null for an image without a path: the standard wants the protocol there all the same.
    void* path = image->path.Empty() ? nullptr : image->path.Get();
    status = calls.Install(&image->handle, gEfiLoadedImageDevicePathProtocolGuid, path);
    image->pathInstalled = !EFI_ERROR(status);
  }
  if (!EFI_ERROR(status) && image->packages != nullptr) {
    status = calls.Install(&image->handle, gEfiHiiPackageListProtocolGuid, image->packages);
  }
  if (image->pages != 0 && !image->pe.nxCompatible) {
    machine_.LetRunFromData(image->handle);
  }
  *handle = image->handle;
  images_[image->handle] = std::move(image);
  return status;
}

// Copies, relocates and protects. Where the image allows it, code is never writable, data never executable, headers and
// constants neither; all others run as they always did, with memory that is both.
EFI_STATUS ImageService::Place(Image& image, std::span<const std::byte> file) {
  PeError error;
  const auto read = ReadPe(file, error);
  if (!read) {
    error_ = error.text;
    return error.status;
  }
  image.pe = *read;
  image.pageCount = (image.pe.imageSize + kImagePageSize - 1) / kImagePageSize;
  MachineCalls calls(machine_);
  if (EFI_ERROR(calls.AllocateLowPages(TypesOf(image.pe.subsystem).code, image.pageCount, &image.pages))) {
    error_ = "there is no memory for the image";
    return EFI_OUT_OF_RESOURCES;
  }
  std::memset(reinterpret_cast<void*>(image.pages), 0, image.pageCount * kImagePageSize);
  if (!PlacePe(image.pe, file, image.Memory(), image.pages, error)) {
    error_ = error.text;
    calls.FreePages(image.pages, image.pageCount);
    return error.status;
  }
  const auto resource = FindHiiResource(image.pe, image.Memory());
  if (resource.size() >= sizeof(EFI_HII_PACKAGE_LIST_HEADER)) {
    image.packages = reinterpret_cast<EFI_HII_PACKAGE_LIST_HEADER*>(resource.data());
  }
  if (!image.pe.Protected()) {
    PageAllocator::MakeExecutable(image.pages, image.pageCount);
    return EFI_SUCCESS;
  }
  image.rights = RightsByPage(image.pe);
  for (std::size_t page = 0; page < image.rights.size(); ++page) {
    static constexpr int kProtection[] = {PROT_READ, PROT_READ | PROT_WRITE, PROT_READ | PROT_EXEC,
                                          PROT_READ | PROT_WRITE};
    mprotect(reinterpret_cast<void*>(image.pages + page * kImagePageSize), kImagePageSize,
             kProtection[static_cast<std::size_t>(image.rights[page])]);
  }
  return EFI_SUCCESS;
}

EFI_STATUS ImageService::Make(Source& source, EFI_HANDLE parent, EFI_HANDLE* handle) {
  auto image = std::make_unique<Image>();
  const std::string_view text(reinterpret_cast<const char*>(source.bytes.data()), source.bytes.size());
  if (text.starts_with(kBuiltinMark)) {
    const auto known = builtins_.find(std::string(text));
    if (known == builtins_.end()) {
      error_ = "no built-in image of that name is registered";
      return EFI_UNSUPPORTED;
    }
    image->builtin = known->second;
    image->pe.subsystem = kSubsystemApplication;
  } else if (const EFI_STATUS status = Place(*image, source.bytes); EFI_ERROR(status)) {
    return status;
  }
  Describe(*image, parent, source);
  return Publish(std::move(image), handle);
}

EFI_STATUS ImageService::Load(bool bootPolicy, EFI_HANDLE parent, EFI_DEVICE_PATH_PROTOCOL* path, const void* source,
                              UINTN sourceSize, EFI_HANDLE* handle) {
  if (source == nullptr && path == nullptr) {
    return Fail(path, EFI_NOT_FOUND, "neither a path nor a buffer was given");
  }
  ImageBytes found;
  if (source != nullptr) {
    found = LocateImageDevice(machine_, path);
    if (sourceSize == 0 || sourceSize > kMaxImageSize) {
      return Fail(path, EFI_LOAD_ERROR, "the buffer is empty or too large");
    }
    const auto* bytes = static_cast<const std::byte*>(source);
    found.bytes.assign(bytes, bytes + sourceSize);
    found.status = EFI_SUCCESS;
  } else {
    found = ReadImageFromPath(machine_, path, bootPolicy);
  }
  if (EFI_ERROR(found.status)) {
    return Fail(path, found.status, "no device answers this path with a file");
  }
  Source origin{found.status, std::move(found.bytes), found.device, std::move(found.whole), std::move(found.filePath)};
  const EFI_STATUS status = Make(origin, parent, handle);
  if (EFI_ERROR(status)) {
    return Fail(path, status, error_);
  }
  if (onLoaded_) {
    onLoaded_(*handle);
  }
  return status;
}

EFI_HANDLE ImageService::CreateBuiltinImage(const std::string& name, Builtin function, const DevicePath& path) {
  Source source;
  source.bytes = RegisterBuiltin(name, std::move(function));
  source.whole = path;
  source.filePath = path;
  EFI_HANDLE handle = nullptr;
  return EFI_ERROR(Make(source, nullptr, &handle)) ? nullptr : handle;
}

EFI_HANDLE ImageService::CreateLinkedDriverImage(std::u16string_view loadOptions,
                                                 const EFI_HII_PACKAGE_LIST_HEADER* packages) {
  auto image = std::make_unique<Image>();
  image->pe.subsystem = kSubsystemBootServiceDriver;
  image->linked = true;
  image->started = true;
  // The interface is the list itself; nobody writes through it.
  image->packages = const_cast<EFI_HII_PACKAGE_LIST_HEADER*>(packages);
  Describe(*image, nullptr, {});
  image->ownOptions = loadOptions;
  if (!loadOptions.empty()) {
    image->protocol.LoadOptions = image->ownOptions.data();
    image->protocol.LoadOptionsSize = static_cast<UINT32>((image->ownOptions.size() + 1) * sizeof(char16_t));
  }
  EFI_HANDLE handle = nullptr;
  return EFI_ERROR(Publish(std::move(image), &handle)) ? nullptr : handle;
}

EFI_HANDLE ImageService::LoadDriverImage(std::span<const std::byte> file, const DevicePath& path,
                                         std::u16string_view loadOptions) {
  Source source;
  source.bytes.assign(file.begin(), file.end());
  source.whole = path;
  source.filePath = path;
  EFI_HANDLE handle = nullptr;
  if (EFI_ERROR(Make(source, nullptr, &handle))) {
    return nullptr;
  }
  Image& image = *Find(handle);
  image.underTest = true;
  if (!loadOptions.empty()) {
    image.ownOptions = loadOptions;
    image.protocol.LoadOptions = image.ownOptions.data();
    image.protocol.LoadOptionsSize = static_cast<UINT32>((image.ownOptions.size() + 1) * sizeof(char16_t));
  }
  return handle;
}

std::vector<std::span<const std::byte>> ImageService::WritableMemory(EFI_HANDLE handle) const {
  std::vector<std::span<const std::byte>> extents;
  const Image* image = Find(handle);
  if (image != nullptr && image->pages != 0) {
    for (const PeSection& section : image->pe.sections) {
      if (section.writable && !section.executable) {
        extents.push_back(image->Memory().subspan(section.address, section.size));
      }
    }
  }
  return extents;
}

bool ImageService::IsForeign(EFI_HANDLE handle) const {
  const Image* image = Find(handle);
  return image != nullptr && image->IsForeign();
}

std::string ImageService::PathText(EFI_HANDLE handle) const {
  const Image* image = Find(handle);
  return image == nullptr ? "" : Text(image->path);
}

// A kernel of the Linux boot protocol says what it runs with, whoever started it; others have their load options.
SystemTakenOver ImageService::DescribeSystem(const std::vector<std::byte>& loadOptions) {
  SystemTakenOver system;
  const std::vector<EFI_MEMORY_DESCRIPTOR> map = machine_.Pages().Map();
  system.memoryMapEntries = map.size();
  system.memoryMapSize = map.size() * kMemoryDescriptorSize;
  if (const auto parameters = FindLinuxBootParameters(map, machine_.Pool())) {
    system.commandLine = parameters->commandLine;
    system.initrd = parameters->initrdSize;
    return system;
  }
  std::u16string text(loadOptions.size() / sizeof(char16_t), u'\0');
  if (!text.empty()) {
    std::memcpy(text.data(), loadOptions.data(), text.size() * sizeof(char16_t));
  }
  system.commandLine = Utf8FromUtf16(text.substr(0, text.find(u'\0')));
  return system;
}

EFI_STATUS ImageService::ExitBootServices(EFI_HANDLE handle, UINTN mapKey) {
  MachineCalls calls(machine_);
  if (!IsImage(handle) || mapKey != calls.MapKey()) {
    return EFI_INVALID_PARAMETER;
  }
  calls.SignalGroup(gEfiEventExitBootServicesGuid);
  if (exitHandler_) {
    exitHandler_();
  }
  BootOutcome outcome;
  outcome.end = BootEnd::ExitedBootServices;
  outcome.image = handle;
  outcome.path = Find(handle)->path;
  outcome.loadOptions = LoadOptionsOf(*Find(handle));
  outcome.system = DescribeSystem(outcome.loadOptions);
  outcome.text = "the operating system took over";
  machine_.EndBoot(std::move(outcome));
}

}  // namespace sim
