// The message hub: the shape of lines, their limits, and who receives what in which order.
#include <functional>
#include <stdexcept>
#include <utility>

#include "support/layer_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;

CMsg& Hub() { return CMsg::Instance(); }

/// Writes down under its name what it receives, and acts the first time.
struct Receiver final : SilentReceiver {
  Receiver(char receiverName, std::string& list) : name(receiverName), calls(list) {}

  void OnLog(const char* line, int level) override { Note("log", line + 27, level); }
  void OnPrint(const char* text, int level) override { Note("print", text, level); }
  void OnNotify(const char* text, int remaining, int) override { Note("notify", text, remaining); }
  void OnProgress(int value) override { Note("progress", "", value); }

  void Note(const std::string& kind, const std::string& text, int number) {
    calls += name + (" " + kind) + text + std::to_string(number) + ";";
    if (const auto action = std::exchange(act, nullptr)) action();
  }

  char name;
  std::string& calls;
  std::function<void()> act;
};

class MessageTest : public LayerTest {
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
  Hub().Log(3, "CHidProperty", "Open Fail,ErrorCode:%d\n", -1);
  machine->clock().SleepUs(53698000000);
  Hub().Log(1, "", L"Index:%d,HwID:%ls\n", 7, L"HID\\VID_2E7C");
  EXPECT_THAT(log.raw, ElementsAre("[2024-03-07, 09:05:02]  CHidProperty, Open Fail,ErrorCode:-1\n",
                                   "[2024-03-08, 00:00:00]  , Index:7,HwID:HID\\VID_2E7C\n"));
}

TEST_F(MessageTest, NarrowMessagesAreCutBehind1023CharactersButTheLineIsNot) {
  const std::string tag(2000, 'T'), fits(1023, 'm'), line = "[2024-03-07, 09:05:02]  " + tag + ", ";
  for (const std::string& message : {fits, fits + "m"}) {
    Hub().Log(0, tag.c_str(), "%s", message.c_str());
    Hub().Print(2, "%s", message.c_str());
  }
  EXPECT_THAT(log.raw, ElementsAre(line + fits, line + fits));
  EXPECT_THAT(log.prints, ElementsAre(LogLine{2, "", fits}, LogLine{2, "", fits}));
}

// The prefix "[2024-03-07, 09:05:02]  t, " takes 27 of the 1023 bytes of a wide line.
TEST_F(MessageTest, WideLinesThatDoNotFitAreARangeErrorAndNotDelivered) {
  Hub().Log(1, "t", L"%ls", L"\u00FC\u20AC\U0001F600");
  EXPECT_EQ("\xC3\xBC\xE2\x82\xAC\xF0\x9F\x98\x80", log.Lines().at(0).text);
  const auto send = [](std::size_t tagLength, const std::wstring& message) {
    Hub().Log(0, std::string(tagLength, 't').c_str(), L"%ls", message.c_str());
  };
  send(1, std::wstring(996, L'm'));
  send(997, L"");
  EXPECT_THROW(send(1, std::wstring(997, L'm')), std::range_error);
  EXPECT_THROW(send(1, std::wstring(333, L'\u20AC')), std::range_error);
  EXPECT_THROW(send(1, std::wstring(5000, L'm')), std::range_error);
  EXPECT_THROW(send(998, L""), std::range_error);
  EXPECT_EQ(3u, log.raw.size());
}

TEST_F(MessageTest, EachKindOfMessageReachesAllInOrderOfRegistrationAlsoFromInsideADelivery) {
  Register({&b, &a, &b});
  a.act = [] { Hub().Log(1, "t", "inner"); };
  Hub().Log(2, "t", L"x");
  Hub().Print(1, "p%d", 5);
  Hub().Notify("Wait", 9);
  Hub().Progress(50);
  EXPECT_EQ(calls,
            "b logx2;a logx2;b loginner1;a loginner1;b loginner1;b logx2;"
            "b printp51;a printp51;b printp51;b notifyWait9;a notifyWait9;b notifyWait9;"
            "b progress50;a progress50;b progress50;");
}

TEST_F(MessageTest, ReceiversMayChangeTheListFromInsideADelivery) {
  const auto remove = [](Receiver& receiver) { Hub().RemoveResponder(&receiver); };
  const struct {
    std::function<void()> act;  // of the first receiver
    std::string now, next;      // whom this delivery and the next one reach
  } rows[] = {{[&] { remove(b); }, "aa", "aa"},
              {[&] { remove(a); }, "aba", "ba"},  // takes out the first entry only
              {[&] { Hub().AddResponder(&a); }, "aba", "abaa"},
              {[] { QZ_ConfigLog(0, 0); }, "a", ""}};
  for (const auto& row : rows) {
    Register({&a, &b, &a});
    a.act = row.act;
    EXPECT_EQ(row.now, Reached());
    EXPECT_EQ(row.next, Reached());
  }
}

}  // namespace
}  // namespace qzhid::test
