// The console: cursor arithmetic, keys from a script and from a terminal's bytes.
#include "sim/firmware/services/console.h"

#include <gtest/gtest.h>

#include "sim/firmware/machine.h"

namespace sim {
namespace {

TEST(Console, TheCursorFollowsTheText) {
  struct Case {
    std::u16string text;
    INT32 column;
    INT32 row;
  };
  const Case cases[] = {
      {u"abc", 3, 0},
      {u"abc\r", 0, 0},
      {u"abc\n", 3, 1},
      {u"abc\b", 2, 0},
      {u"\b", 0, 0},
      {std::u16string(80, u'x'), 0, 1},
      {std::u16string(80 * 25, u'x'), 0, 24},
      {std::u16string(40, u'\n'), 0, 24},
  };
  for (const Case& test : cases) {
    ConsoleModel console;
    auto* out = console.Output();
    ASSERT_EQ(out->OutputString(out, test.text.c_str()), EFI_SUCCESS);
    EXPECT_EQ(out->Mode->CursorColumn, test.column);
    EXPECT_EQ(out->Mode->CursorRow, test.row);
  }
}

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
