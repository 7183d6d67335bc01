// What the player passes on of the tuned service, for a media player to read.
#include <lumio-host/broadcast.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <poll.h>

#include "file_descriptor.h"
#include "recorder.h"
#include "service_list.h"
#include "temporary_directory.h"
#include "transport_stream.h"

namespace broadcast = lumio::broadcast;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr unsigned kVideo1 = 0x101, kVideo2 = 0x201;

// A second of two services, whose pictures are the numbers from 0 on.
ts::Stream TwoServices() {
  ts::Stream stream;
  for (int tenth = 0; tenth < 10; ++tenth) {
    stream.Section(0, ts::Pat(3, {{1, 0x100}, {2, 0x200}}));
    stream.Section(0x100, ts::Pmt(1, kVideo1, {{2, kVideo1, {}}}));
    stream.Section(0x200, ts::Pmt(2, kVideo2, {{2, kVideo2, {}}}));
    stream.Pcr(kVideo1, tenth * 0.1);
    stream.Pcr(kVideo2, tenth * 0.1);
    for (const unsigned pid : {kVideo1, kVideo2}) {
      stream.Packet(pid, ts::Bytes(184, static_cast<std::uint8_t>(tenth)));
    }
  }
  return stream;
}

class PassOn : public testing::Test {
protected:
  ~PassOn() override { broadcast::Close(); }

  void Open(const ts::Stream &stream, broadcast::AtEnd at_end = broadcast::AtEnd::LoseSignal) {
    std::ofstream(directory_ / "stream.ts", std::ios::binary)
        .write(reinterpret_cast<const char *>(stream.bytes.data()), static_cast<std::streamsize>(stream.bytes.size()));
    broadcast::Options options;
    options.clock = broadcast::Clock::Virtual;
    options.atEnd = at_end;
    ASSERT_TRUE(broadcast::Open(directory_ / "stream.ts", options));
  }

  lumio::TemporaryDirectory directory_;
};

// Takes what is in the pipe now.
ts::Bytes Take(const lumio::FileDescriptor &pipe) {
  ts::Bytes taken;
  for (pollfd state{pipe.Get(), POLLIN, 0}; poll(&state, 1, 0) == 1 && (state.revents & POLLIN) != 0;) {
    std::uint8_t buffer[4096];
    const ssize_t count = read(pipe.Get(), buffer, sizeof buffer);
    taken.insert(taken.end(), buffer, buffer + std::max<ssize_t>(count, 0));
  }
  return taken;
}

bool HasEnded(const lumio::FileDescriptor &pipe) {
  pollfd state{pipe.Get(), POLLIN, 0};
  return poll(&state, 1, 0) == 1 && state.revents == POLLHUP;
}

std::set<unsigned> PidsOf(const ts::Bytes &bytes) {
  std::set<unsigned> pids;
  for (std::size_t i = 0; i < bytes.size(); i += 188) {
    pids.insert(broadcast::Packet(&bytes[i]).Pid());
  }
  return pids;
}

// The first bytes of the pictures.
std::vector<int> PicturesOf(const ts::Bytes &bytes, unsigned pid) {
  std::vector<int> pictures;
  for (std::size_t i = 0; i < bytes.size(); i += 188) {
    const broadcast::Packet packet(&bytes[i]);
    if (packet.Pid() == pid && packet.HasPayload()) {
      pictures.push_back(bytes[i + 4]);
    }
  }
  return pictures;
}

TEST_F(PassOn, NeedsAStream) {
  errno = 0;
  EXPECT_EQ(broadcast::PassOn(), -1);
  EXPECT_EQ(errno, ENODEV);
}

TEST_F(PassOn, GivesTheTunedServiceAlone) {
  Open(TwoServices());
  broadcast::Tune(2);
  const lumio::FileDescriptor pipe(broadcast::PassOn());
  broadcast::Advance(350ms);
  const ts::Bytes bytes = Take(pipe);
  EXPECT_THAT(PidsOf(bytes), ElementsAre(0, 0x200, kVideo2));
  EXPECT_THAT(PicturesOf(bytes, kVideo2), ElementsAre(0, 1, 2, 3));
  EXPECT_EQ(ts::Bytes(&bytes[5], &bytes[5] + 16), ts::Pat(3, {{2, 0x200}})) << "a PAT of one service";
  EXPECT_FALSE(HasEnded(pipe));
}

TEST_F(PassOn, EndsWithTheTunedService) {
  Open(TwoServices());
  broadcast::Tune(1);
  const lumio::FileDescriptor first(broadcast::PassOn());
  broadcast::Advance(150ms);
  broadcast::Tune(2);
  broadcast::Advance(200ms);
  EXPECT_THAT(PicturesOf(Take(first), kVideo1), ElementsAre(0, 1));
  EXPECT_TRUE(HasEnded(first));
  const lumio::FileDescriptor second(broadcast::PassOn());
  broadcast::Advance(200ms);
  EXPECT_THAT(PicturesOf(Take(second), kVideo2), ElementsAre(5)) << "from the next tables on";
}

TEST_F(PassOn, WaitsForTheServiceThatIsTunedTo) {
  Open(TwoServices());
  broadcast::Tune(1);
  broadcast::Advance(150ms);
  broadcast::Pause(true);
  broadcast::Tune(2);
  const lumio::FileDescriptor pipe(broadcast::PassOn()); // perhaps before the player has followed
  broadcast::Pause(false);
  broadcast::Advance(200ms);
  EXPECT_THAT(PidsOf(Take(pipe)), ElementsAre(0, 0x200, kVideo2));
  EXPECT_FALSE(HasEnded(pipe));
}

TEST_F(PassOn, LeavesOutWhatIsPlayedBeforeTheServiceThatIsTunedTo) {
  static int g_pipe = -1;
  Open(TwoServices());
  broadcast::Tune(1);
  broadcast::Advance(150ms);
  broadcast::SetPacketListener([](const unsigned char *) {
    if (g_pipe < 0) { // this packet is still one of the other service
      broadcast::Tune(2);
      g_pipe = broadcast::PassOn();
    }
  });
  broadcast::Advance(300ms);
  broadcast::SetPacketListener(nullptr);
  const lumio::FileDescriptor pipe(g_pipe);
  EXPECT_THAT(PidsOf(Take(pipe)), ElementsAre(0, 0x200, kVideo2));
  EXPECT_FALSE(HasEnded(pipe));
}

TEST_F(PassOn, StartsAgainWithTheServiceThatIsTunedTo) {
  Open(TwoServices());
  broadcast::Tune(1);
  const lumio::FileDescriptor first(broadcast::PassOn());
  broadcast::Advance(150ms);
  broadcast::Tune(2);
  const lumio::FileDescriptor second(broadcast::PassOn());
  broadcast::Advance(200ms);
  EXPECT_THAT(PidsOf(Take(second)), ElementsAre(0, 0x200, kVideo2));
}

TEST_F(PassOn, EndsWithTheSignalTheStreamAndTheNextCall) {
  Open(TwoServices());
  const lumio::FileDescriptor first(broadcast::PassOn());
  const lumio::FileDescriptor second(broadcast::PassOn());
  EXPECT_TRUE(HasEnded(first));
  broadcast::Advance(2s);
  EXPECT_THAT(PicturesOf(Take(second), kVideo1), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9));
  EXPECT_TRUE(HasEnded(second));

  Open(TwoServices(), broadcast::AtEnd::Loop);
  const lumio::FileDescriptor third(broadcast::PassOn());
  broadcast::StopPassingOn();
  EXPECT_TRUE(HasEnded(third));
  const lumio::FileDescriptor fourth(broadcast::PassOn());
  broadcast::Close();
  EXPECT_TRUE(HasEnded(fourth));
}

TEST_F(PassOn, AnnouncesThatTheStreamStartsAgain) {
  Open(TwoServices(), broadcast::AtEnd::Loop);
  const lumio::FileDescriptor pipe(broadcast::PassOn());
  broadcast::Advance(1200ms);
  const ts::Bytes bytes = Take(pipe);
  EXPECT_GT(PicturesOf(bytes, kVideo1).size(), 10U);
  int announced = 0;
  for (std::size_t i = 0; i < bytes.size(); i += 188) {
    announced += broadcast::Packet(&bytes[i]).IsDiscontinuous() ? 1 : 0;
  }
  EXPECT_EQ(announced, 1);
  EXPECT_FALSE(HasEnded(pipe));
}

TEST_F(PassOn, WaitsForNobody) {
  ts::Stream stream = TwoServices();
  for (int i = 0; i < 20000; ++i) { // more than the pipe takes
    stream.Packet(kVideo1, ts::Bytes(184, 77));
  }
  stream.Pcr(kVideo1, 2);
  Open(stream, broadcast::AtEnd::Loop);
  const lumio::FileDescriptor pipe(broadcast::PassOn());
  broadcast::Advance(5s);
  const ts::Bytes bytes = Take(pipe);
  EXPECT_LE(bytes.size(), 1U << 20);
  EXPECT_EQ(bytes.size() % 188, 0U);
  EXPECT_THAT(PidsOf(bytes), ElementsAre(0, 0x100, kVideo1)) << "whole packets";
  broadcast::Advance(3s);
  EXPECT_THAT(Take(pipe), testing::Not(IsEmpty())) << "it goes on when there is room again";
}

TEST_F(PassOn, SurvivesAReaderThatHasGone) {
  signal(SIGPIPE, SIG_DFL);
  signal(SIGPIPE, SIG_DFL); // EFL handles it
  Open(TwoServices(), broadcast::AtEnd::Loop);
  lumio::FileDescriptor pipe(broadcast::PassOn());
  pipe.Close();
  broadcast::Advance(1s);
  const lumio::FileDescriptor next(broadcast::PassOn());
  broadcast::Advance(1s);
  EXPECT_THAT(Take(next), testing::Not(IsEmpty()));
}

} // namespace
