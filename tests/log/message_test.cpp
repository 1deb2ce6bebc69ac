// The message hub: the shape of lines, their limits, and who receives what in which order.
#include <functional>
#include <stdexcept>
#include <utility>

#include "support/layer_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;

CMsg& Hub() { return CMsg::Instance(); }
using Calls = std::vector<std::string>;

/// Writes down under its name what it receives, and acts the first time.
struct Receiver final : SilentReceiver {
  Receiver(std::string receiverName, Calls& list) : name(std::move(receiverName)), calls(list) {}

  void OnLog(const char* line, int level) override { Note("log", line + 27, level); }
  void OnPrint(const char* text, int level) override { Note("print", text, level); }
  void OnNotify(const char* text, int remaining, int) override { Note("notify", text, remaining); }
  void OnProgress(int value) override { Note("progress", "", value); }
  unsigned Takes() const override { return kinds; }

  void Note(const std::string& kind, const std::string& text, int number) {
    calls.push_back(name + ' ' + kind + ' ' + text + std::to_string(number));
    if (const auto action = std::exchange(act, nullptr)) action();
  }

  std::string name;
  Calls& calls;
  std::function<void()> act;
  unsigned kinds = kLines | kTexts | kNotices | kProgress;
};

class MessageTest : public LayerTest {
 protected:
  ~MessageTest() override { Hub().ClearResponders(); }

  /// Registers these in place of all others.
  void Register(std::initializer_list<IResponder*> receivers) {
    Hub().ClearResponders();
    for (IResponder* receiver : receivers) Hub().AddResponder(receiver);
  }
  /// Delivers one of each kind; what the receivers wrote down.
  Calls DeliverAll() {
    calls.clear();
    Hub().Log(2, "t", L"x");
    Hub().Print(1, "p%d", 5);
    Hub().Notify("Wait", 9);
    Hub().Progress(50);
    return calls;
  }
  /// The names of those that one delivery of progress reaches.
  std::string Reached() {
    calls.clear();
    Hub().Progress(1);
    std::string names;
    for (const std::string& call : calls) names += call[0];
    return names;
  }

  Calls calls;
  Receiver a{"a", calls}, b{"b", calls};
};

TEST_F(MessageTest, ALineIsLocalTimeTagAndMessageWithNothingAdded) {
  Hub().Log(3, "CHidProperty", "Open Fail,ErrorCode:%d\n", -1);
  machine->clock().SleepUs(53698000000);
  Hub().Log(1, "", L"Index:%d,HwID:%ls\n", 7, L"HID\\VID_2E7C");
  EXPECT_THAT(log.raw, ElementsAre("[2024-03-07, 09:05:02]  CHidProperty, Open Fail,ErrorCode:-1\n",
                                   "[2024-03-08, 00:00:00]  , Index:7,HwID:HID\\VID_2E7C\n"));
}

TEST_F(MessageTest, NarrowMessagesAreCutAfter1023CharactersButTheTagIsNot) {
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

TEST_F(MessageTest, EachKindReachesThoseThatTakeItInOrderOfRegistration) {
  Register({&b, &a, &b});
  EXPECT_THAT(DeliverAll(),
              ElementsAre("b log x2", "a log x2", "b log x2", "b print p51", "a print p51",
                          "b print p51", "b notify Wait9", "a notify Wait9", "b notify Wait9",
                          "b progress 50", "a progress 50", "b progress 50"));
  const std::pair<unsigned, const char*> rows[] = {{kLines, "a log x2"},
                                                   {kTexts, "a print p51"},
                                                   {kNotices, "a notify Wait9"},
                                                   {kProgress, "a progress 50"}};
  for (const auto& [kind, call] : rows) {
    a.kinds = kind;
    Register({&a});
    EXPECT_THAT(DeliverAll(), ElementsAre(call));
    EXPECT_EQ(kind == kLines, Hub().IsHeard());
  }
  Register({});
  EXPECT_FALSE(Hub().IsHeard());
}

TEST_F(MessageTest, AMessageFromInsideADeliveryIsDeliveredAtOnce) {
  Register({&a, &b});
  a.act = [] { Hub().Log(1, "t", "inner"); };
  Hub().Log(2, "t", "outer");
  EXPECT_THAT(calls, ElementsAre("a log outer2", "a log inner1", "b log inner1", "b log outer2"));
}

TEST_F(MessageTest, ReceiversMayChangeTheListFromInsideADelivery) {
  const auto remove = [](Receiver& receiver) { Hub().RemoveResponder(&receiver); };
  const struct {
    std::function<void()> act;  // of the first receiver
    std::string now, next;      // whom this delivery and the next one reach
  } rows[] = {{[&] { remove(b); }, "aa", "aa"},
              {[&] { remove(a); }, "aba", "ba"},  // takes out the first entry only
              {[&] { remove(a), remove(a), remove(a); }, "ab", "b"},
              {[&] { Hub().AddResponder(&a); }, "aba", "abaa"},
              {[] { QZ_ConfigLog(0, 0); }, "a", ""}};
  for (const auto& row : rows) {
    Register({&a, &b, &a});
    a.act = row.act;
    EXPECT_EQ(row.now, Reached());
    EXPECT_EQ(row.next, Reached());
  }
}

TEST_F(MessageTest, AReceiverMayRemoveAndDestroyItselfInItsDelivery) {
  auto leaving = std::make_unique<Receiver>("c", calls);
  Register({leaving.get(), &a});
  leaving->act = [&] {
    Hub().RemoveResponder(leaving.get());
    leaving.reset();
  };
  EXPECT_EQ("ca", Reached());
  EXPECT_EQ("a", Reached());
}

}  // namespace
}  // namespace qzhid::test
