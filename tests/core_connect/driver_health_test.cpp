// Driver health: what each state leads to, the bound on repeated repairs, and the messages.
#include <gmock/gmock.h>

#include "core/steps.h"
#include "platform/form_browser2.h"
#include "platform/hii_string.h"
#include "platform/setup_front_end.h"
#include "support/pool.h"
#include "tests/core_connect/connect_recorder.h"
#include "tests/support/fake_health_driver.h"

namespace {

const EFI_HII_HANDLE kForm = reinterpret_cast<EFI_HII_HANDLE>(0x100);
const EFI_HII_HANDLE kStrings = reinterpret_cast<EFI_HII_HANDLE>(0x200);

// Shows forms and messages; its members have no This argument, so that what it saw is kept for the whole program.
struct FakeFrontEnd {
  SETUP_FRONT_END_PROTOCOL Protocol{};
  EFI_FORM_BROWSER2_PROTOCOL Browser{};
  EFI_HII_STRING_PROTOCOL Strings{};
  static inline std::vector<std::u16string> Shown;
  static inline int Forms;
  static inline EFI_STATUS FormStatus;
  static inline std::string Languages;  // of the strings, separated by semicolons

  FakeFrontEnd() {
    Shown.clear();
    Forms = 0;
    FormStatus = EFI_SUCCESS;
    Languages = "en-US";
    Protocol.ShowMessage = Show;
    Protocol.LeaveQuietBoot = Leave;
    Browser.SendForm = SendForm;
    Strings.GetString = GetString;
    Strings.GetLanguages = GetLanguages;
  }

 private:
  static EFI_STATUS EFIAPI Show(const CHAR16* text) {
    Shown.emplace_back(text);
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI Leave() {
    Shown.emplace_back(u"(left quiet boot)");
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI SendForm(const EFI_FORM_BROWSER2_PROTOCOL*, EFI_HII_HANDLE* handles, UINTN count,
                                    const EFI_GUID* formSet, UINT16 form, const EFI_SCREEN_DESCRIPTOR* screen,
                                    EFI_BROWSER_ACTION_REQUEST*) {
    EXPECT_EQ(count, 1U);
    EXPECT_EQ(handles[0], kForm);
    EXPECT_EQ(*formSet, gEfiDriverHealthFormsetGuid);
    EXPECT_EQ(form, 0);
    EXPECT_EQ(screen, nullptr);
    ++Forms;
    return FormStatus;
  }
  static EFI_STATUS EFIAPI GetString(const EFI_HII_STRING_PROTOCOL*, const CHAR8* language, EFI_HII_HANDLE package,
                                     EFI_STRING_ID id, CHAR16* text, UINTN* size, EFI_FONT_INFO**) {
    EXPECT_EQ(package, kStrings);
    if ((";" + Languages + ";").find(";" + std::string(language) + ";") == std::string::npos || id == 9) {
      return EFI_NOT_FOUND;
    }
    const char16_t message[] = {u'm', static_cast<char16_t>(u'0' + id), 0};
    const UINTN room = *size;
    *size = sizeof(message);
    if (room < sizeof(message) || text == nullptr) {
      return EFI_BUFFER_TOO_SMALL;
    }
    std::memcpy(text, message, sizeof(message));
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI GetLanguages(const EFI_HII_STRING_PROTOCOL*, EFI_HII_HANDLE, CHAR8* languages, UINTN* size) {
    const UINTN room = std::exchange(*size, Languages.size() + 1);
    if (room < *size) {
      return EFI_BUFFER_TOO_SMALL;
    }
    std::memcpy(languages, Languages.c_str(), *size);
    return EFI_SUCCESS;
  }
};

// Strings 1, 9 (which cannot be read) and 2, in pool memory as a driver gives them.
EFI_DRIVER_HEALTH_HII_MESSAGE* MakeMessages() {
  const EFI_DRIVER_HEALTH_HII_MESSAGE messages[] = {{kStrings, 1, 0}, {kStrings, 9, 0}, {kStrings, 2, 0}, {}};
  return static_cast<EFI_DRIVER_HEALTH_HII_MESSAGE*>(bds::AllocateCopyPool(sizeof(messages), messages));
}

class DriverHealthTest : public test::ConnectTest {
 protected:
  void SetUp() override {
    driver.Controller = InstallPath(path);
    Install(&driver.Health);
    Install(&frontEnd.Protocol);
    Install(&frontEnd.Browser);
    Install(&frontEnd.Strings);
  }
  void SetSetup(int check, int showInQuietBoot) {
    test::Data setup(kSetupSize);
    setup[kSetupDriverHealthCheck] = static_cast<std::byte>(check);
    setup[kSetupHealthInQuietBoot] = static_cast<std::byte>(showInQuietBoot);
    Set(kSetupName, setup, 3, kSetupGuid);
  }
  void SetQuietBoot(int quiet) {
    test::Data setup(kFrontEndSetupSize);
    setup[kFrontEndQuietBoot] = static_cast<std::byte>(quiet);
    Set(kFrontEndSetupName, setup, 3, kFrontEndSetupGuid);
  }
  // How the step ended, and that it left nothing in the pool.
  sim::BootOutcome Check() {
    const std::size_t blocks = machine.Pool().Count();
    const auto outcome = machine.Run([] {
      bds::CheckDriverHealth();
      return EFI_SUCCESS;
    });
    EXPECT_EQ(machine.Pool().Count(), blocks);
    return outcome;
  }

  sim::DevicePath path = sim::DevicePath().Pci(3, 0);
  test::FakeHealthDriver driver;
  FakeFrontEnd frontEnd;
};

TEST_F(DriverHealthTest, EachStateHasItsAction) {
  constexpr auto kHealthy = EfiDriverHealthStatusHealthy;
  constexpr auto kRepair = EfiDriverHealthStatusRepairRequired;
  constexpr auto kConfigure = EfiDriverHealthStatusConfigurationRequired;
  constexpr auto kReboot = EfiDriverHealthStatusRebootRequired;
  constexpr auto kReturned = sim::BootEnd::Returned;
  const struct {
    const char* What;
    std::deque<EFI_DRIVER_HEALTH_STATUS> Answers;
    int Questions;
    int Repairs;
    int Forms;
    std::size_t Connects;  // calls to connect and disconnect
    sim::BootEnd End;
  } cases[] = {
      {"healthy", {kHealthy}, 1, 0, 0, 0, kReturned},
      {"repaired", {kRepair, kHealthy}, 2, 1, 0, 0, kReturned},
      {"configured", {kConfigure, kHealthy}, 2, 0, 1, 0, kReturned},
      {"failed", {EfiDriverHealthStatusFailed}, 1, 0, 0, 0, kReturned},
      {"reconnected, not asked again", {EfiDriverHealthStatusReconnectRequired}, 1, 0, 0, 2, kReturned},
      {"reboot", {kReboot}, 1, 0, 0, 0, sim::BootEnd::Reset},
      {"repaired, then configured, then reboot", {kRepair, kConfigure, kReboot}, 3, 1, 1, 0, sim::BootEnd::Reset},
      {"repair without an end", {kRepair}, 8, 8, 0, 0, kReturned},
      {"configuration without an end", {kConfigure}, 8, 0, 8, 0, kReturned},
      {"unknown state", {static_cast<EFI_DRIVER_HEALTH_STATUS>(77)}, 1, 0, 0, 0, kReturned},
  };
  driver.Form = kForm;
  for (const auto& row : cases) {
    SCOPED_TRACE(row.What);
    driver.Answers = row.Answers;
    driver.Questions = 0;
    driver.Repairs = 0;
    FakeFrontEnd::Forms = 0;
    recorder.Calls.clear();
    const auto outcome = Check();
    EXPECT_EQ(outcome.end, row.End);
    if (row.End == sim::BootEnd::Reset) {
      EXPECT_EQ(outcome.reset, EfiResetWarm);
    }
    EXPECT_EQ(driver.Questions, row.Questions);
    EXPECT_EQ(driver.Repairs, row.Repairs);
    EXPECT_EQ(FakeFrontEnd::Forms, row.Forms);
    EXPECT_EQ(recorder.Calls.size(), row.Connects);
  }
}

TEST_F(DriverHealthTest, AFailedActionIsNotRepeated) {
  driver.Answers = {EfiDriverHealthStatusRepairRequired};
  driver.RepairStatus = EFI_DEVICE_ERROR;
  Check();
  EXPECT_EQ(driver.Questions, 1);
  driver.Answers = {EfiDriverHealthStatusConfigurationRequired};
  Check();
  EXPECT_EQ(driver.Questions, 2) << "no form to show";
  EXPECT_EQ(FakeFrontEnd::Forms, 0);
  driver.Form = kForm;
  FakeFrontEnd::FormStatus = EFI_ABORTED;
  Check();
  EXPECT_EQ(driver.Questions, 3);
  EXPECT_EQ(FakeFrontEnd::Forms, 1);
}

TEST_F(DriverHealthTest, SetupSwitchesTheCheckOff) {
  driver.Answers = {EfiDriverHealthStatusFailed};
  SetSetup(0, 1);
  Check();
  EXPECT_EQ(driver.Questions, 0);
  SetSetup(1, 0);
  Check();
  EXPECT_EQ(driver.Questions, 1);
}

TEST_F(DriverHealthTest, MessagesAreShownInAQuietBootOnlyWhenAllowed) {
  const struct {
    int Quiet;
    int Allowed;
    std::vector<std::u16string> Expected;
  } cases[] = {
      {0, 0, {u"m1", u"m2"}}, {0, 1, {u"m1", u"m2"}}, {1, 0, {}}, {1, 1, {u"(left quiet boot)", u"m1", u"m2"}}};
  driver.Answers = {EfiDriverHealthStatusFailed};
  driver.MakeMessages = MakeMessages;
  for (const auto& row : cases) {
    FakeFrontEnd::Shown.clear();
    SetQuietBoot(row.Quiet);
    SetSetup(1, row.Allowed);
    Check();
    EXPECT_EQ(FakeFrontEnd::Shown, row.Expected) << row.Quiet << row.Allowed;
  }
}

TEST_F(DriverHealthTest, AMessageComesInTheNearestLanguageThatItsPackageHas) {
  const struct {
    const char* Platform;
    std::string Package;
    bool Shown;
  } cases[] = {{"en-US", "en", true},
               {"de-CH-1996", "fr;de-CH", true},
               {"zh-Hant-x-a", "zh-Hant", true},
               {"fr", "en", true},
               {"", "en-US", true},
               {"de", "ja;ko", true},
               {"en-US", "", false},
               {"-", "en-US", true},
               {"en-US", std::string(300, 'x'), false}};
  driver.Answers = {EfiDriverHealthStatusFailed};
  driver.MakeMessages = MakeMessages;
  for (const auto& row : cases) {
    const auto* text = reinterpret_cast<const std::byte*>(row.Platform);
    Set(u"PlatformLang", test::Data(text, text + std::strlen(row.Platform) + 1), 6);
    FakeFrontEnd::Shown.clear();
    FakeFrontEnd::Languages = row.Package;
    Check();
    EXPECT_EQ(FakeFrontEnd::Shown.size(), row.Shown ? 2U : 0U) << row.Platform << " " << row.Package;
  }
}

}  // namespace
