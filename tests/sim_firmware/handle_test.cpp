// The handle database: who may open what, who is told of what, and what is found again.
#include "tests/sim_firmware/firmware_fixture.h"

namespace sim {
namespace {

constexpr UINT32 kHandleProtocol = EFI_OPEN_PROTOCOL_BY_HANDLE_PROTOCOL;
constexpr UINT32 kGet = EFI_OPEN_PROTOCOL_GET_PROTOCOL;
constexpr UINT32 kTest = EFI_OPEN_PROTOCOL_TEST_PROTOCOL;
constexpr UINT32 kChild = EFI_OPEN_PROTOCOL_BY_CHILD_CONTROLLER;
constexpr UINT32 kDriver = EFI_OPEN_PROTOCOL_BY_DRIVER;
constexpr UINT32 kExclusive = EFI_OPEN_PROTOCOL_EXCLUSIVE;
constexpr UINT32 kBoth = kDriver | kExclusive;

class HandleTest : public FirmwareTest {
 protected:
  EFI_STATUS Open(EFI_HANDLE agent, EFI_HANDLE user, UINT32 attributes) {
    return bs->OpenProtocol(device, &kRed, &found, agent, user, attributes);
  }
  std::vector<HandleDatabase::Open> Opens() {
    const auto* interface = machine.Handles().Find(device, kRed);
    return {interface->opens.begin(), interface->opens.end()};
  }

  int thing = 0;
  EFI_HANDLE device = NewHandle(kRed, &thing);
  EFI_HANDLE one = NewHandle(kBlue);
  EFI_HANDLE two = NewHandle(kBlue);
  void* found = nullptr;
};

TEST_F(HandleTest, SecondOpenAnswersByBothModes) {
  struct Case {
    UINT32 first;
    UINT32 second;
    EFI_STATUS sameAgent;
    EFI_STATUS otherAgent;
  };
  // The first agent has no driver binding, so that an exclusive open cannot make it let go.
  const Case cases[] = {
      {kGet, kDriver, EFI_SUCCESS, EFI_SUCCESS},
      {kHandleProtocol, kBoth, EFI_SUCCESS, EFI_SUCCESS},
      {kTest, kExclusive, EFI_SUCCESS, EFI_SUCCESS},
      {kChild, kDriver, EFI_SUCCESS, EFI_SUCCESS},
      {kChild, kExclusive, EFI_SUCCESS, EFI_SUCCESS},
      {kDriver, kGet, EFI_SUCCESS, EFI_SUCCESS},
      {kDriver, kChild, EFI_SUCCESS, EFI_SUCCESS},
      {kDriver, kDriver, EFI_ALREADY_STARTED, EFI_ACCESS_DENIED},
      {kDriver, kExclusive, EFI_ACCESS_DENIED, EFI_ACCESS_DENIED},
      {kDriver, kBoth, EFI_ACCESS_DENIED, EFI_ACCESS_DENIED},
      {kExclusive, kGet, EFI_SUCCESS, EFI_SUCCESS},
      {kExclusive, kDriver, EFI_ACCESS_DENIED, EFI_ACCESS_DENIED},
      {kExclusive, kExclusive, EFI_ACCESS_DENIED, EFI_ACCESS_DENIED},
      {kExclusive, kBoth, EFI_ACCESS_DENIED, EFI_ACCESS_DENIED},
      {kBoth, kDriver, EFI_ACCESS_DENIED, EFI_ACCESS_DENIED},
      {kBoth, kExclusive, EFI_ACCESS_DENIED, EFI_ACCESS_DENIED},
      {kBoth, kBoth, EFI_ALREADY_STARTED, EFI_ACCESS_DENIED},
  };
  for (const Case& c : cases) {
    for (const bool same : {true, false}) {
      SCOPED_TRACE(testing::Message() << c.first << " then " << c.second << (same ? ", same" : ", other"));
      device = NewHandle(kRed, &thing);
      ASSERT_EQ(Open(one, two, c.first), EFI_SUCCESS);
      EXPECT_EQ(Open(same ? one : two, two, c.second), same ? c.sameAgent : c.otherAgent);
    }
  }
}

TEST_F(HandleTest, OpenRefusesWhatTheModeNeedsAndDoesNotGet) {
  const EFI_HANDLE stranger = &thing;
  struct Case {
    UINT32 attributes;
    EFI_HANDLE agent;
    EFI_HANDLE user;
    EFI_STATUS status;
  };
  const Case cases[] = {
      {0, one, two, EFI_INVALID_PARAMETER},
      {kGet | kDriver, one, two, EFI_INVALID_PARAMETER},
      {kChild | kExclusive, one, two, EFI_INVALID_PARAMETER},
      {0x40, one, two, EFI_INVALID_PARAMETER},
      {kDriver, nullptr, two, EFI_INVALID_PARAMETER},
      {kDriver, one, nullptr, EFI_INVALID_PARAMETER},
      {kDriver, stranger, two, EFI_INVALID_PARAMETER},
      {kChild, one, stranger, EFI_INVALID_PARAMETER},
      {kExclusive, nullptr, nullptr, EFI_INVALID_PARAMETER},
      {kExclusive, one, nullptr, EFI_SUCCESS},
      {kGet, nullptr, nullptr, EFI_SUCCESS},
      {kGet, stranger, stranger, EFI_SUCCESS},
  };
  for (const Case& c : cases) {
    device = NewHandle(kRed, &thing);
    EXPECT_EQ(Open(c.agent, c.user, c.attributes), c.status) << c.attributes << " " << c.agent << " " << c.user;
  }
  EXPECT_EQ(Open(one, device, kChild), EFI_INVALID_PARAMETER) << "no handle is its own child";
  EXPECT_EQ(Opens().size(), 0u) << "an agent that is no handle can never close";
}

TEST_F(HandleTest, InterfaceThatSomebodyHoldsIsNotRemoved) {
  for (const UINT32 mode : {kChild, kExclusive, kDriver}) {
    device = NewHandle(kRed, &thing);
    ASSERT_EQ(Open(one, two, mode), EFI_SUCCESS);
    EXPECT_EQ(bs->UninstallProtocolInterface(device, &kRed, &thing), EFI_ACCESS_DENIED) << mode;
    ASSERT_EQ(bs->CloseProtocol(device, &kRed, one, two), EFI_SUCCESS);
    EXPECT_EQ(bs->UninstallProtocolInterface(device, &kRed, &one), EFI_NOT_FOUND);
    EXPECT_EQ(bs->UninstallProtocolInterface(device, &kRed, &thing), EFI_SUCCESS);
    EXPECT_FALSE(machine.Handles().Exists(device)) << "a handle without interfaces is gone";
    EXPECT_EQ(bs->UninstallProtocolInterface(device, &kRed, &thing), EFI_INVALID_PARAMETER);
  }
}

TEST_F(HandleTest, UninstallMultipleRemovesAllOrNothing) {
  ASSERT_EQ(bs->InstallMultipleProtocolInterfaces(&device, &kGreen, &one, nullptr), EFI_SUCCESS);
  EXPECT_EQ(bs->UninstallMultipleProtocolInterfaces(device, &kRed, &thing, &kGreen, &two, nullptr),
            EFI_INVALID_PARAMETER);
  EXPECT_EQ(bs->UninstallMultipleProtocolInterfaces(device, &kRed, &thing, &kGreen, &one, &kRed, &thing, nullptr),
            EFI_INVALID_PARAMETER);
  ASSERT_EQ(bs->OpenProtocol(device, &kGreen, &found, one, nullptr, kExclusive), EFI_SUCCESS);
  EXPECT_EQ(bs->UninstallMultipleProtocolInterfaces(device, &kRed, &thing, &kGreen, &one, nullptr),
            EFI_INVALID_PARAMETER);
  EXPECT_EQ(machine.Handles().InterfacesOf(device)->size(), 2u);
  ASSERT_EQ(bs->CloseProtocol(device, &kGreen, one, nullptr), EFI_SUCCESS);
  EXPECT_EQ(bs->UninstallMultipleProtocolInterfaces(device, &kRed, &thing, &kGreen, &one, nullptr), EFI_SUCCESS);
  EXPECT_FALSE(machine.Handles().Exists(device));
}

VOID EFIAPI Nothing(EFI_EVENT, VOID*) {}

TEST_F(HandleTest, RegistrationFindsEachNewHandleOnce) {
  EFI_EVENT event = nullptr;
  void* key = nullptr;
  ASSERT_EQ(bs->CreateEvent(EVT_NOTIFY_SIGNAL, TPL_CALLBACK, Nothing, nullptr, &event), EFI_SUCCESS);
  ASSERT_EQ(bs->RegisterProtocolNotify(&kRed, event, &key), EFI_SUCCESS);
  const auto next = [&]() -> EFI_HANDLE {
    EFI_HANDLE handle = nullptr;
    UINTN size = sizeof(handle);
    return bs->LocateHandle(ByRegisterNotify, nullptr, key, &size, &handle) == EFI_SUCCESS ? handle : nullptr;
  };
  EXPECT_EQ(next(), nullptr) << "what was there before is not new";
  const EFI_HANDLE a = NewHandle(kRed, &one);
  const EFI_HANDLE b = NewHandle(kRed, &two);
  const EFI_HANDLE gone = NewHandle(kRed, &two);
  ASSERT_EQ(bs->ReinstallProtocolInterface(a, &kRed, &one, &two), EFI_SUCCESS);
  ASSERT_EQ(bs->UninstallProtocolInterface(gone, &kRed, &two), EFI_SUCCESS);
  UINTN none = 0;
  EXPECT_EQ(bs->LocateHandle(ByRegisterNotify, nullptr, key, &none, nullptr), EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ(none, sizeof(EFI_HANDLE));
  EXPECT_EQ(next(), b);
  EXPECT_EQ(next(), a) << "the reinstalled one moved behind";
  EXPECT_EQ(next(), nullptr);

  NewHandle(kRed, &one);
  void* interface = nullptr;
  EXPECT_EQ(bs->LocateProtocol(&kBlue, key, &interface), EFI_NOT_FOUND);
  EXPECT_EQ(bs->LocateProtocol(nullptr, key, &interface), EFI_INVALID_PARAMETER);
  EXPECT_EQ(bs->LocateProtocol(&kRed, key, &interface), EFI_SUCCESS);
  EXPECT_EQ(interface, &one);
  ASSERT_EQ(bs->CloseEvent(event), EFI_SUCCESS);
  NewHandle(kRed, &one);
  EXPECT_EQ(next(), nullptr) << "a registration ends with its event";
}

class LocatePathTest : public FirmwareTest {
 protected:
  EFI_HANDLE Place(const DevicePath& path) {
    paths_.push_back(std::make_unique<DevicePath>(path));
    EFI_HANDLE handle = NewHandle(ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL>, paths_.back()->Get());
    EXPECT_EQ(bs->InstallProtocolInterface(&handle, &kRed, EFI_NATIVE_INTERFACE, nullptr), EFI_SUCCESS);
    return handle;
  }
  EFI_STATUS Locate(DevicePath& path, std::size_t& consumed, EFI_HANDLE& handle) {
    EFI_DEVICE_PATH_PROTOCOL* at = path.Get();
    const EFI_STATUS status = bs->LocateDevicePath(&kRed, &at, &handle);
    consumed = static_cast<std::size_t>(reinterpret_cast<std::byte*>(at) - reinterpret_cast<std::byte*>(path.Get()));
    return status;
  }
  std::vector<std::unique_ptr<DevicePath>> paths_;
  DevicePath root = DevicePath().Acpi(0x0A0341D0);
  DevicePath pci = DevicePath(root).Pci(0x1F, 2);
  DevicePath disk = DevicePath(pci).Sata(0);
};

TEST_F(LocatePathTest, LongestCandidateThatBeginsThePathWins) {
  const EFI_HANDLE rootHandle = Place(root);
  const EFI_HANDLE diskHandle = Place(disk);
  const EFI_HANDLE pciHandle = Place(pci);
  Place(DevicePath(root).Pci(0x1F, 3));
  struct Case {
    DevicePath path;
    EFI_HANDLE handle;
    std::size_t consumed;
  };
  const std::size_t end = sizeof(EFI_DEVICE_PATH_PROTOCOL);
  const Case cases[] = {
      {root, rootHandle, root.Size() - end},
      {DevicePath(root).Pci(2, 0), rootHandle, root.Size() - end},
      {pci, pciHandle, pci.Size() - end},
      {DevicePath(pci).Sata(1), pciHandle, pci.Size() - end},
      {disk, diskHandle, disk.Size() - end},
      {DevicePath(disk).CdRom(0, 1, 2), diskHandle, disk.Size() - end},
      {DevicePath(pci).NextInstance(disk), pciHandle, pci.Size() - end},
  };
  for (const Case& c : cases) {
    DevicePath path = c.path;
    std::size_t consumed = 0;
    EFI_HANDLE handle = nullptr;
    EXPECT_EQ(Locate(path, consumed, handle), EFI_SUCCESS);
    EXPECT_EQ(handle, c.handle) << "path of " << path.Size() << " bytes";
    EXPECT_EQ(consumed, c.consumed);
  }
}

TEST_F(LocatePathTest, NoMatchAndMalformedPathsChangeNothing) {
  Place(pci);
  const auto with = [this](std::size_t at, std::uint8_t value) {
    DevicePath path = disk;
    reinterpret_cast<std::uint8_t*>(path.Get())[at] = value;
    return path;
  };
  struct Case {
    const char* what;
    DevicePath path;
    EFI_STATUS status;
  };
  const Case cases[] = {
      {"another root", DevicePath().Acpi(1).Pci(0x1F, 2), EFI_NOT_FOUND},
      {"shorter than every candidate", root, EFI_NOT_FOUND},
      {"only an end", DevicePath(), EFI_NOT_FOUND},
      {"first node of length 0", with(2, 0), EFI_INVALID_PARAMETER},
      {"first node of length 3", with(2, 3), EFI_INVALID_PARAMETER},
      {"second node of length 1", with(12 + 2, 1), EFI_INVALID_PARAMETER},
  };
  for (const Case& c : cases) {
    DevicePath path = c.path;
    std::size_t consumed = 1;
    EFI_HANDLE handle = nullptr;
    EXPECT_EQ(Locate(path, consumed, handle), c.status) << c.what;
    EXPECT_EQ(consumed, 0u) << c.what;
    EXPECT_EQ(handle, nullptr) << c.what;
  }
  // A path without an end is read to the bound and no further.
  std::vector<std::byte> endless(DevicePath::kMaxSize, std::byte{0});
  for (std::size_t at = 0; at < endless.size(); at += 4) {
    endless[at] = std::byte{1};
    endless[at + 2] = std::byte{4};
  }
  auto* path = reinterpret_cast<EFI_DEVICE_PATH_PROTOCOL*>(endless.data());
  EFI_HANDLE handle = nullptr;
  EXPECT_EQ(bs->LocateDevicePath(&kRed, &path, &handle), EFI_INVALID_PARAMETER);
  path = disk.Get();
  EXPECT_EQ(bs->LocateDevicePath(&kRed, &path, nullptr), EFI_INVALID_PARAMETER);
  path = nullptr;
  EXPECT_EQ(bs->LocateDevicePath(&kRed, &path, &handle), EFI_INVALID_PARAMETER);
}

}  // namespace
}  // namespace sim
