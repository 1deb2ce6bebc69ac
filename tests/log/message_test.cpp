// The message hub: the shape of lines, their limits, and who receives what in which order.
#include <functional>
#include <stdexcept>
#include <utility>

#include "support/library_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;

CMsg& Hub() { return CMsg::Instance(); }

/// Writes down under its name what it receives, and acts the first time.
struct Receiver final : IResponder {
  Receiver(char receiverName, std::string& list) : name(receiverName), calls(list) {}

  void OnLog(const char* line, int level) override { Note("log", line + 27, level); }
  void OnPrint(const char* text, int level) override { Note("print", text, level); }
  void OnNotify(const char* text, int remaining, int reserved) override {
    Note("notify" + std::to_string(reserved), text, remaining);
  }
  void OnProgress(int value) override { Note("progress", "", value); }
  void SetLevel(int) override {}

  void Note(const std::string& kind, const std::string& text, int number) {
    calls += name + (" " + kind) + text + std::to_string(number) + ";";
    if (const auto action = std::exchange(act, nullptr)) action();
  }

  char name;
  std::string& calls;
  std::function<void()> act;
};

class MessageTest : public LibraryTest {
 protected:
  ~MessageTest() override { Hub().ClearResponders(); }

  /// Registers these in place of all others.
  void Register(std::initializer_list<IResponder*> receivers) {
    Hub().ClearResponders();
    for (IResponder* receiver : receivers) Hub().AddResponder(receiver);
  }
  /// The names of those that one delivery reaches.
  std::string Reached() {
    calls.clear();
    Hub().Progress(1);
    std::erase_if(calls, [](char c) { return c != 'a' && c != 'b'; });
    return calls;
  }

  std::string calls;
  Receiver a{'a', calls}, b{'b', calls};
};

TEST_F(MessageTest, LineIsLocalTimeTagAndMessageWithNothingAdded) {
  Hub().Log(3, "CHidTransfers::HidDataIn", "Set Report Fail,ErrorCode:%d\n", -1);
  world->clock().SleepUs(53698000000);
  Hub().Log(1, "CHidFind::ListHidDevice", L"Index:%d,HwID:%ls\n", 7, L"HID\\VID_2E7C");
  world->clock().SleepUs(25833599000000);
  Hub().Log(0, "", "%s", "");
  EXPECT_THAT(
      log.raw,
      ElementsAre(
          "[2024-03-07, 09:05:02]  CHidTransfers::HidDataIn, Set Report Fail,ErrorCode:-1\n",
          "[2024-03-08, 00:00:00]  CHidFind::ListHidDevice, Index:7,HwID:HID\\VID_2E7C\n",
          "[2024-12-31, 23:59:59]  , "));
  EXPECT_EQ(3, log.lines[0].level);
  EXPECT_EQ(1, log.lines[1].level);
}

TEST_F(MessageTest, NarrowMessagesAreCutBehind1023CharactersButTheLineIsNot) {
  const std::string tag(2000, 'T');
  for (const std::size_t length : {0u, 1u, 1022u, 1023u, 1024u, 2000u}) {
    log.Clear();
    const std::string message(length, 'm'), kept(std::min<std::size_t>(length, 1023), 'm');
    Hub().Log(0, tag.c_str(), "%s", message.c_str());
    Hub().Print(2, "%s", message.c_str());
    EXPECT_THAT(log.raw, ElementsAre("[2024-03-07, 09:05:02]  " + tag + ", " + kept));
    EXPECT_THAT(log.prints, ElementsAre(LogLine{2, "", kept}));
  }
}

// The prefix "[2024-03-07, 09:05:02]  t, " takes 27 of the 1023 bytes of a wide line.
TEST_F(MessageTest, WideLinesThatDoNotFitAreARangeErrorAndNotDelivered) {
  Hub().Log(1, "t", L"%ls", L"\u00FC\u20AC\U0001F600");
  EXPECT_EQ("\xC3\xBC\xE2\x82\xAC\xF0\x9F\x98\x80", log.lines.at(0).text);
  const struct {
    std::size_t tagLength;
    std::wstring message;
    bool fits;
  } rows[] = {{1, std::wstring(996, L'm'), true},
              {1, std::wstring(997, L'm'), false},
              {1, std::wstring(332, L'\u20AC'), true},
              {1, std::wstring(333, L'\u20AC'), false},
              {1, std::wstring(1024, L'm'), false},
              {1, std::wstring(5000, L'm'), false},
              {997, L"", true},
              {998, L"", false}};
  for (const auto& row : rows) {
    log.Clear();
    bool fits = true;
    try {
      Hub().Log(0, std::string(row.tagLength, 't').c_str(), L"%ls", row.message.c_str());
    } catch (const std::range_error&) {
      fits = false;
    }
    EXPECT_EQ(row.fits, fits) << row.message.size();
    EXPECT_EQ(row.fits, log.raw.size() == 1);
  }
}

TEST_F(MessageTest, EachKindOfMessageReachesAllInOrderOfRegistration) {
  Register({&b, &a, &b});
  Hub().Log(2, "t", "x");
  Hub().Print(1, "p%d", 5);
  Hub().Notify("Wait", 9);
  Hub().Progress(50);
  EXPECT_EQ(
      "b logx2;a logx2;b logx2;b printp51;a printp51;b printp51;"
      "b notify0Wait9;a notify0Wait9;b notify0Wait9;b progress50;a progress50;b progress50;",
      calls);
}

TEST_F(MessageTest, RemoveTakesOutTheFirstEntryOnly) {
  Register({&a, &b, &a});
  for (const char* reached : {"ba", "b", "b"}) {
    Hub().RemoveResponder(&a);
    EXPECT_EQ(reached, Reached());
  }
  Hub().ClearResponders();
  EXPECT_EQ("", Reached());
}

TEST_F(MessageTest, ReceiversMayUseTheHubFromInsideADelivery) {
  Register({&a, &b});
  a.act = [] { Hub().Log(1, "t", "inner"); };
  Hub().Progress(10);
  EXPECT_EQ("a progress10;a loginner1;b loginner1;b progress10;", calls);

  const struct {
    std::function<void()> act;
    std::string now, next;  // whom this delivery and the next one reach
  } rows[] = {{[&] { Hub().RemoveResponder(&b); }, "a", "a"},
              {[&] { Hub().RemoveResponder(&a); }, "ab", "b"},
              {[&] { QZ_ConfigLog(0, 0); }, "a", ""},
              {[&] { Hub().AddResponder(&a); }, "ab", "aba"}};
  for (const auto& row : rows) {
    Register({&a, &b});
    a.act = row.act;
    EXPECT_EQ(row.now, Reached());
    EXPECT_EQ(row.next, Reached());
  }
}

}  // namespace
}  // namespace qzhid::test
