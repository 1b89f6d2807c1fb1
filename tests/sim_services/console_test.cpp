// The console: keys from a script and from a terminal's bytes.
#include "sim/firmware/services/console.h"

#include <gtest/gtest.h>

#include "sim/firmware/machine.h"

namespace sim {
namespace {

TEST(Console, ScriptedKeysComeInOrderAndWakeAWaiter) {
  Machine machine;
  ConsoleModel console;
  ASSERT_EQ(console.CreateKeyEvents(machine.BootServices()), EFI_SUCCESS);
  auto* in = console.Input();
  EFI_INPUT_KEY key{};
  EXPECT_EQ(in->ReadKeyStroke(in, &key), EFI_NOT_READY);
  EXPECT_EQ(machine.BootServices()->CheckEvent(in->WaitForKey), EFI_NOT_READY);
  console.Type(u"a\n");
  UINTN index = 9;
  EXPECT_EQ(machine.BootServices()->WaitForEvent(1, &in->WaitForKey, &index), EFI_SUCCESS);
  EXPECT_EQ(index, 0u);
  ASSERT_EQ(in->ReadKeyStroke(in, &key), EFI_SUCCESS);
  EXPECT_EQ(key.UnicodeChar, u'a');
  EFI_KEY_DATA data{};
  auto* ex = console.InputEx();
  ASSERT_EQ(ex->ReadKeyStrokeEx(ex, &data), EFI_SUCCESS);
  EXPECT_EQ(data.Key.UnicodeChar, u'\r');
  EXPECT_EQ(ex->ReadKeyStrokeEx(ex, &data), EFI_NOT_READY);
  console.Type(u"x");
  EXPECT_EQ(in->Reset(in, FALSE), EFI_SUCCESS);
  EXPECT_EQ(in->ReadKeyStroke(in, &key), EFI_NOT_READY);
}

TEST(Console, TheScreenShowsWhatWasDrawnOnIt) {
  ConsoleModel console;
  auto* out = console.Output();
  const auto lines = [&] { return console.Screen().Lines(); };
  out->OutputString(out, u"gone");
  out->ClearScreen(out);
  out->SetCursorPosition(out, 3, 1);
  out->OutputString(out, u"menu  \b\bx\r\n>");
  EXPECT_EQ(lines(), (std::vector<std::string>{"", "   menux", ">"}));
  EXPECT_EQ(out->SetCursorPosition(out, 80, 0), EFI_UNSUPPORTED);
  EXPECT_EQ(out->Mode->CursorColumn, 1);
  EXPECT_EQ(out->Mode->CursorRow, 2);
  out->SetCursorPosition(out, 79, 24);
  out->OutputString(out, u"ab");  // a full line goes on in the next, and the last one scrolls
  EXPECT_EQ(lines().size(), 25u);
  EXPECT_EQ(lines()[0], "   menux");
  EXPECT_EQ(lines()[23].back(), 'a');
  EXPECT_EQ(lines()[24], "b");
}

TEST(Console, AModeHasItsOwnScreenAndColoursAreTold) {
  ConsoleModel console;
  auto* out = console.Output();
  std::vector<int> colours;
  console.SetColourHandler([&](int attribute) { colours.push_back(attribute); });
  EXPECT_EQ(out->SetMode(out, static_cast<UINTN>(out->Mode->MaxMode)), EFI_UNSUPPORTED);
  UINTN columns = 0;
  UINTN rows = 0;
  ASSERT_EQ(out->QueryMode(out, 2, &columns, &rows), EFI_SUCCESS);
  ASSERT_EQ(out->SetMode(out, 2), EFI_SUCCESS);
  EXPECT_EQ(out->SetCursorPosition(out, columns - 1, rows - 1), EFI_SUCCESS);
  EXPECT_EQ(out->SetCursorPosition(out, columns, 0), EFI_UNSUPPORTED);
  EXPECT_EQ(out->SetAttribute(out, 0x1F), EFI_SUCCESS);
  EXPECT_EQ(out->Reset(out, FALSE), EFI_SUCCESS);
  EXPECT_EQ(out->Mode->Mode, 0);
  EXPECT_EQ(colours, (std::vector<int>{0x1F, 0x07}));
}

TEST(Console, WhoAsksForNothingButKeysWaitsForEver) {
  Machine machine;
  ConsoleModel console;
  ASSERT_EQ(console.CreateKeyEvents(machine.BootServices()), EFI_SUCCESS);
  const BootOutcome outcome = machine.Run([&] {
    EFI_INPUT_KEY key{};
    while (console.Input()->ReadKeyStroke(console.Input(), &key) == EFI_NOT_READY) {
    }
    return EFI_SUCCESS;
  });
  EXPECT_EQ(outcome.end, BootEnd::WaitsForever);
  EXPECT_GE(outcome.time, Machine::kKeyPatience);
}

TEST(TerminalKeys, SequencesAreOneKey) {
  TerminalKeys keys;
  keys.Feed("a\x1B[A\x1B[D\n\x7F");
  EXPECT_EQ(keys.Next()->UnicodeChar, u'a');
  EXPECT_EQ(keys.Next()->ScanCode, kScanUp);
  EXPECT_EQ(keys.Next()->ScanCode, kScanLeft);
  EXPECT_EQ(keys.Next()->UnicodeChar, u'\r');
  EXPECT_EQ(keys.Next()->UnicodeChar, u'\b');
  EXPECT_FALSE(keys.Next());
  keys.Feed("\x1B");
  EXPECT_FALSE(keys.Next()) << "more may follow";
  keys.Flush();
  EXPECT_EQ(keys.Next()->ScanCode, kScanEsc);
}

}  // namespace
}  // namespace sim
