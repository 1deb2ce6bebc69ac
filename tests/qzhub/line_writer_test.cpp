// Lines for readers that do not read.
#include "qzhub/line_writer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "common/descriptor.h"

namespace qzhub::test {

namespace {

struct Pipe {
  Pipe() {
    int ends[2];
    EXPECT_EQ(0, pipe(ends));
    reader = tools::Descriptor(ends[0]);
    writer = tools::Descriptor(ends[1]);
  }
  std::string ReadLine() {
    std::string line;
    for (char letter = 0; read(reader.get(), &letter, 1) == 1 && letter != '\n';) line += letter;
    return line;
  }

  tools::Descriptor reader, writer;
};

TEST(LineWriterTest, LinesThatDoNotFitAreDroppedAndCounted) {
  Pipe pipe;
  fcntl(pipe.writer.get(), F_SETPIPE_SZ, 4096);
  const int all = 3000;
  const std::string line(200, '-');
  LineWriter writer(pipe.writer.get(), "qzhub: ");
  for (int i = 0; i < all; ++i) writer.Write(line);
  int read = 0;
  std::string last = pipe.ReadLine();
  for (; last == "qzhub: " + line; last = pipe.ReadLine()) ++read;
  EXPECT_EQ("qzhub: dropped " + std::to_string(all - read) + " lines", last);
  writer.Write("next");
  EXPECT_EQ("qzhub: next", pipe.ReadLine());
}

TEST(LineWriterTest, AReaderThatHasGoneDoesNotEndTheProcess) {
  Pipe pipe;
  pipe.reader.Close();
  LineWriter writer(pipe.writer.get(), "");
  writer.Write("unread");
}

}  // namespace

}  // namespace qzhub::test
