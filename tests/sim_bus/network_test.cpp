// Load file of a network port.
#include "sim/bus/network_device.h"

#include "sim/firmware/device_path_builder.h"
#include "tests/sim_bus/bus_fixture.h"

namespace sim::test {
namespace {

TEST(NetworkLoadFile, AnswersAsDescribed) {
  const TemporaryFolder folder;
  NetworkPort memory;
  memory.boot.image = Bytes(100, std::byte{7});
  NetworkPort file;
  file.boot.imageFile = folder.Write("boot.efi", std::string(100, '\7'));
  NetworkPort unplugged = memory;
  unplugged.mediaPresent = false;
  NetworkPort silent;
  NetworkPort refused;
  refused.boot.status = EFI_NO_RESPONSE;
  NetworkPort lost;
  lost.boot.imageFile = folder.Path() / "missing";
  const struct {
    const NetworkPort& port;
    EFI_STATUS status;
  } cases[] = {{memory, EFI_SUCCESS},   {file, EFI_SUCCESS},        {unplugged, EFI_NO_MEDIA},
               {silent, EFI_NOT_FOUND}, {refused, EFI_NO_RESPONSE}, {lost, EFI_NOT_FOUND}};
  DevicePath path;
  for (const auto& item : cases) {
    NetworkLoadFile device(item.port);
    auto* load = ProtocolOf<EFI_LOAD_FILE_PROTOCOL>(device);
    UINTN size = 0;
    const EFI_STATUS first = load->LoadFile(load, path.Get(), TRUE, &size, nullptr);
    if (EFI_ERROR(item.status)) {
      EXPECT_EQ(first, item.status);
      continue;
    }
    EXPECT_EQ(first, EFI_BUFFER_TOO_SMALL);
    ASSERT_EQ(size, 100U);
    Bytes buffer(size);
    EXPECT_EQ(load->LoadFile(load, path.Get(), TRUE, &size, buffer.data()), EFI_SUCCESS);
    EXPECT_EQ(buffer[99], std::byte{7});
    EXPECT_EQ(load->LoadFile(load, path.Get(), FALSE, &size, buffer.data()), EFI_UNSUPPORTED);
  }
}

}  // namespace
}  // namespace sim::test
