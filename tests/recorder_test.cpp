// The recorder: what it takes of a broadcast, where it writes it, and what it says.
#include <lumio-host/broadcast.h>
#include <lumio-host/pvr-control.h>

#include <gmock/gmock.h>

#include <sys/resource.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "byte_source.h"
#include "packet.h"
#include "recorder.h"
#include "run_command.h"
#include "temporary_directory.h"
#include "told.h"
#include "transport_stream.h"

namespace broadcast = lumio::broadcast;
namespace pvr = lumio::pvr;
using Json = nlohmann::json;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

namespace {

using Packets = std::vector<ts::Bytes>;

Packets PacketsOf(const std::string &file) {
  broadcast::FileSource source;
  EXPECT_EQ(source.Open(file), 0);
  broadcast::PacketReader reader(source);
  Packets packets;
  while (const std::uint8_t *packet = reader.Next()) {
    packets.emplace_back(packet, packet + broadcast::kPacketSize);
  }
  return packets;
}

Packets PacketsOf(const ts::Stream &stream) {
  Packets packets;
  for (auto begin = stream.bytes.begin(); begin != stream.bytes.end(); begin += broadcast::kPacketSize) {
    packets.emplace_back(begin, begin + broadcast::kPacketSize);
  }
  return packets;
}

std::uint16_t PidOf(const ts::Bytes &packet) { return broadcast::Packet(packet.data()).Pid(); }

std::set<unsigned> PidsOf(const Packets &packets) {
  std::set<unsigned> pids;
  std::transform(packets.begin(), packets.end(), std::inserter(pids, pids.end()), PidOf);
  return pids;
}

Packets OnPid(const Packets &packets, unsigned pid) {
  Packets found;
  std::copy_if(packets.begin(), packets.end(), std::back_inserter(found),
               [&](const ts::Bytes &packet) { return PidOf(packet) == pid; });
  return found;
}

Json Info(const std::string &file) { return Json::parse(RunCommand({LUMIO_TV, "info", "--json", file}).output); }

// What ffprobe reads of each elementary stream: its PID and the number of its packets.
std::map<std::string, std::string> CountedByFfprobe(const std::string &file) {
  const Json streams = Json::parse(
      RunCommand({"/usr/bin/env", "ffprobe", "-v", "quiet", "-of", "json", "-count_packets", "-show_streams", file})
          .output)["streams"];
  std::map<std::string, std::string> counts;
  for (const Json &stream : streams) {
    counts[stream["id"]] = stream.value("nb_read_packets", "");
  }
  return counts;
}

Json ProgramsByFfprobe(const std::string &file) {
  return Json::parse(
      RunCommand({"/usr/bin/env", "ffprobe", "-v", "quiet", "-of", "json", "-show_programs", file}).output)["programs"];
}

// What the recorder makes of packets.
class Recorded {
public:
  explicit Recorded(std::uint16_t service)
      : recorder(service, [this](const std::uint8_t *packet) {
          packets.emplace_back(packet, packet + broadcast::kPacketSize);
        }) {}
  void Push(const Packets &stream) {
    for (const ts::Bytes &packet : stream) {
      recorder.Push(packet.data());
    }
  }

  Packets packets;
  broadcast::Recorder recorder;
};

constexpr unsigned kPmt = 0x100, kVideo = 0x101;

ts::Stream TwoServices(unsigned version = 0, unsigned video = kVideo) {
  ts::Stream stream;
  stream.Section(0, ts::Pat(3, {{0, 0x10}, {1, kPmt}, {2, 0x110}}, {version}));
  stream.Section(kPmt, ts::Pmt(1, video, {{0x02, video, {}}}, {version}));
  stream.Section(0x110, ts::Pmt(2, 0x111, {{0x1b, 0x111, {}}}));
  return stream;
}

} // namespace

TEST(Recorder, TakesTheStreamsOfItsServiceAsTheyAre) {
  const Packets sample = PacketsOf(LUMIO_SAMPLE);
  Recorded recorded(101);
  recorded.Push(sample);
  EXPECT_EQ(PidsOf(recorded.packets), (std::set<unsigned>{0, 0x11, 0x12, 0x100, 0x101, 0x102, 0x103, 0x104}));
  for (const unsigned pid : {0x102, 0x103, 0x104}) {
    EXPECT_TRUE(OnPid(recorded.packets, pid) == OnPid(sample, pid)) << pid;
  }
  Packets pictures = OnPid(sample, 0x101);
  pictures.erase(pictures.begin()); // a clock before the tables
  EXPECT_TRUE(OnPid(recorded.packets, 0x101) == pictures);
  EXPECT_EQ(std::chrono::duration_cast<std::chrono::seconds>(recorded.recorder.Duration()), 19s);
}

TEST(Recorder, TakesNothingBeforeThePmt) {
  ts::Stream stream;
  stream.Packet(kVideo, ts::Bytes(184, 1));
  stream.Section(0x11, ts::Sdt(3, 2, {{1, ts::Text("Lumio"), ts::Text("One")}}));
  stream.Section(kPmt, ts::Pmt(1, kVideo, {{0x02, kVideo, {}}}));
  Recorded recorded(1);
  recorded.Push(PacketsOf(stream));
  EXPECT_THAT(recorded.packets, IsEmpty());
}

TEST(Recorder, TakesNothingOfAServiceThatIsNotThere) {
  for (const std::uint16_t service : {0, 3}) { // 0 is the network's table
    Recorded recorded(service);
    recorded.Push(PacketsOf(TwoServices()));
    EXPECT_THAT(recorded.packets, IsEmpty()) << service;
  }
}

TEST(Recorder, FollowsAnotherVersionOfThePmt) {
  ts::Stream stream = TwoServices();
  stream.Packet(kVideo, ts::Bytes(184, 1));
  Recorded recorded(1);
  recorded.Push(PacketsOf(stream));
  ts::Stream changed = TwoServices(1, 0x105);
  changed.Packet(kVideo, ts::Bytes(184, 2));
  changed.Packet(0x105, ts::Bytes(184, 3));
  recorded.Push(PacketsOf(changed));
  EXPECT_THAT(OnPid(recorded.packets, kVideo), SizeIs(1));
  EXPECT_THAT(OnPid(recorded.packets, 0x105), SizeIs(1));
}

TEST(Recorder, TakesOnlyItsOwnPmtAndSdt) {
  ts::Stream stream;
  stream.Section(0, ts::Pat(3, {{1, kPmt}, {2, kPmt}}));
  stream.Section(kPmt, ts::Pmt(1, kVideo, {{0x02, kVideo, {}}}));
  stream.Section(kPmt, ts::Pmt(2, 0x111, {{0x1b, 0x111, {}}}));
  stream.Section(0x11, ts::Sdt(3, 2, {{1, {}, ts::Text("Of another stream")}}, {}, 0x46));
  stream.Packet(kVideo, ts::Bytes(184, 1));
  stream.Packet(0x111, ts::Bytes(184, 2));
  Recorded recorded(1);
  recorded.Push(PacketsOf(stream));
  EXPECT_EQ(PidsOf(recorded.packets), (std::set<unsigned>{0, kPmt, kVideo}));
}

TEST(Recorder, ForgetsTheStreamsWhenThePmtIsElsewhere) {
  ts::Stream stream = TwoServices();
  stream.Section(0, ts::Pat(3, {{1, 0x120}}, {1}));
  stream.Packet(kVideo, ts::Bytes(184, 1));
  Recorded recorded(1);
  recorded.Push(PacketsOf(stream));
  EXPECT_THAT(OnPid(recorded.packets, kVideo), IsEmpty());
}

TEST(Recorder, FollowsTheServicesClock) {
  ts::Stream before;
  before.Section(0, ts::Pat(3, {{1, kPmt}}));
  before.Section(kPmt, ts::Pmt(1, kVideo, {{0x02, kVideo, {}}, {0x03, 0x102, {}}}));
  before.Pcr(kVideo, 0);
  before.Pcr(0x102, 1.5); // another clock
  before.Pcr(kVideo, 1);
  ts::Stream after;
  after.Pcr(kVideo, 3); // from another place
  after.Pcr(kVideo, 4);
  Recorded recorded(1);
  recorded.Push(PacketsOf(before));
  recorded.recorder.Interrupt();
  recorded.Push(PacketsOf(after));
  EXPECT_EQ(recorded.recorder.Duration(), 2s);
}

TEST(Recorder, AnnouncesAnInterruptionWithTheCounterThatGoesBefore) {
  ts::Stream stream = TwoServices();
  stream.Packet(kVideo, ts::Bytes(184, 1));
  Recorded recorded(1);
  recorded.Push(PacketsOf(stream));
  recorded.recorder.Interrupt();
  recorded.packets.clear();
  ts::Stream after;
  after.Skip(kVideo, 9);
  after.Packet(kVideo, ts::Bytes(184, 2));
  recorded.Push(PacketsOf(after));
  ASSERT_THAT(recorded.packets, SizeIs(2));
  EXPECT_TRUE(broadcast::Packet(recorded.packets[0].data()).IsDiscontinuous());
  EXPECT_EQ(broadcast::Packet(recorded.packets[0].data()).Counter(), 8);
  EXPECT_EQ(broadcast::Packet(recorded.packets[1].data()).Counter(), 9);
}

TEST(Recorder, LeavesOutTablesWithAWrongChecksum) {
  ts::Stream stream = TwoServices();
  ts::Bytes wrong = ts::Eit(0x4e, {2, 3, 1}, {});
  wrong.back() ^= 1;
  stream.Section(0x12, wrong);
  Recorded recorded(1);
  recorded.Push(PacketsOf(stream));
  EXPECT_THAT(OnPid(recorded.packets, 0x12), IsEmpty());
}

TEST(Recorder, TakesOnlyItsOwnProgrammes) {
  ts::Stream stream = TwoServices();
  for (const unsigned table : {0x4e, 0x4f, 0x50, 0x5f, 0x60}) {
    for (const unsigned service : {1U, 2U}) {
      stream.Section(0x12, ts::Eit(table, {2, 3, service}, {}));
    }
  }
  Recorded recorded(1);
  recorded.Push(PacketsOf(stream));
  std::vector<int> tables;
  for (const ts::Bytes &packet : OnPid(recorded.packets, 0x12)) {
    tables.push_back(packet[5]);
    EXPECT_EQ(packet[9], 1);
  }
  EXPECT_THAT(tables, ElementsAre(0x4e, 0x50, 0x5f));
}

TEST(Recorder, DoesNotTakeTablesForStreams) {
  ts::Stream stream;
  stream.Section(0, ts::Pat(3, {{1, kPmt}}));
  stream.Section(kPmt, ts::Pmt(1, 0x1fff, {{0x02, 0x11, {}}, {0x02, kPmt, {}}, {0x02, 0x1fff, {}}}));
  stream.Packet(0x11, ts::Bytes(184, 1));
  stream.Null();
  Recorded recorded(1);
  recorded.Push(PacketsOf(stream));
  EXPECT_EQ(PidsOf(recorded.packets), (std::set<unsigned>{0, kPmt}));
}

namespace {

void OnResult(ps_result_thirdpart result, void *user_data) {
  EXPECT_GE(result.free_space, 0);
  static_cast<Told *>(user_data)->Add("operation " + std::to_string(result.operation) + " request " +
                                      std::to_string(result.request_id) + " result " + std::to_string(result.result) +
                                      " program " + std::to_string(result.program) + " duration " +
                                      std::to_string(result.duration));
}

bool OnState(pvr_state_e state, void *user_data) {
  static const char *const kNames[] = {"idle", "recording", "disk full", "conflict"};
  static_cast<Told *>(user_data)->Add(kNames[state]);
  return true;
}

// Records the sample, on a clock that moves only when it is told to.
class Recording : public testing::Test {
protected:
  Recording() {
    setenv("LUMIO_RECORDINGS", folder_.c_str(), 1);
    svc_pvr_service_init();
    svc_pvr_register_to_other_apps_cb(OnResult, &told_);
    svc_pvr_register_get_pvr_state_cb(OnState, &told_);
  }
  ~Recording() override {
    pvr::StopRecording();
    broadcast::Close();
    pvr::Shutdown();
  }

  void Open(broadcast::AtEnd at_end = broadcast::AtEnd::LoseSignal) {
    broadcast::Options options;
    options.clock = broadcast::Clock::Virtual;
    options.atEnd = at_end;
    ASSERT_TRUE(broadcast::Open(LUMIO_SAMPLE, options));
  }

  std::vector<std::string> Everything() {
    pvr::Flush();
    return told_.All();
  }

  std::vector<std::string> Files(const std::string &folder) {
    std::vector<std::string> files;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
      files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
  }
  std::string TheFile() {
    const std::vector<std::string> files = Files(folder_);
    EXPECT_THAT(files, SizeIs(1));
    return files.empty() ? "" : files[0];
  }

  lumio::TemporaryDirectory directory_;
  const std::string folder_ = directory_ / "recordings/of mine";
  Told told_;
};

} // namespace

TEST_F(Recording, IsAStreamOfOneService) {
  Open();
  pvr::StartRecording(102);
  broadcast::Advance(5s);
  broadcast::Tune(101); // does not concern the recording
  broadcast::Advance(20s);
  EXPECT_EQ(pvr::State(), PVR_STATE_RECORDING);
  pvr::StopRecording();
  EXPECT_THAT(Everything(), ElementsAre("operation 1 request 1 result 0 program 102 duration 0", "recording",
                                        "operation 2 request 2 result 0 program 102 duration 19", "idle"));
  const std::string file = TheFile();
  EXPECT_THAT(file, MatchesRegex(".*/20[0-9]{6}T[0-9]{6}Z-102[.]ts"));

  const Json programs = ProgramsByFfprobe(file);
  ASSERT_THAT(programs, SizeIs(1));
  EXPECT_EQ(programs[0]["program_id"], 102);
  EXPECT_EQ(programs[0]["tags"]["service_name"], "Lumio Two");
  const auto counts = CountedByFfprobe(file);
  const auto broadcast_counts = CountedByFfprobe(LUMIO_SAMPLE);
  EXPECT_THAT(counts, SizeIs(3)); // it takes the EIT for a stream, too
  for (const std::string pid : {"0x201", "0x202"}) {
    EXPECT_EQ(counts.at(pid), broadcast_counts.at(pid)) << pid;
  }

  const Packets recorded = PacketsOf(file), sample = PacketsOf(LUMIO_SAMPLE);
  EXPECT_TRUE(OnPid(recorded, 0x202) == OnPid(sample, 0x202)); // to the last one
  const Json info = Info(file), original = Info(LUMIO_SAMPLE);
  EXPECT_EQ(info["continuity_errors"], 0);
  EXPECT_EQ(info["sync_losses"], 0);
  EXPECT_EQ(info["services"], Json::array({original["services"][1]}));
  EXPECT_EQ(info["captions"], Json::array({original["captions"][4]}));
  std::vector<std::pair<int, int>> tables;
  for (const Json &table : info["tables"]) {
    tables.emplace_back(table["pid"], table["table_id"]);
    EXPECT_EQ(table["crc_errors"], 0);
  }
  using Table = std::pair<int, int>;
  EXPECT_THAT(tables,
              ElementsAre(Table(0, 0), Table(0x11, 0x42), Table(0x12, 0x4e), Table(0x12, 0x50), Table(0x200, 2)));
}

TEST_F(Recording, KeepsWhatIsWrongOnAir) {
  Open();
  pvr::StartRecording(101);
  broadcast::Advance(25s);
  pvr::StopRecording();
  const Json info = Info(TheFile()), original = Info(LUMIO_SAMPLE);
  EXPECT_EQ(info["services"], Json::array({original["services"][0]}));
  EXPECT_EQ(info["carousels"], original["carousels"]);
  EXPECT_EQ(info["transport_errors"], 1);
  EXPECT_EQ(info["continuity_errors"], 1);
}

TEST_F(Recording, GoesOnWhenTheStreamStartsAgain) {
  Open(broadcast::AtEnd::Loop);
  pvr::StartRecording(102);
  broadcast::Advance(50s);
  pvr::StopRecording();
  EXPECT_THAT(Everything().at(2), HasSubstr("duration 49"));
  EXPECT_EQ(Info(TheFile())["continuity_errors"], 0);
}

TEST_F(Recording, BeginsInTheMiddle) {
  Open();
  broadcast::Advance(10s);
  pvr::StartRecording(102);
  broadcast::Advance(5s);
  pvr::StopRecording();
  EXPECT_THAT(Everything().at(2), HasSubstr("duration 4"));
  EXPECT_EQ(Info(TheFile())["continuity_errors"], 0);
  EXPECT_THAT(ProgramsByFfprobe(TheFile()), SizeIs(1));
}

TEST_F(Recording, NeverGoesOverAnExistingFile) {
  Open();
  for (int i = 0; i < 12; ++i) { // at least some of them in the same second
    pvr::StartRecording(101);
    pvr::StopRecording();
  }
  EXPECT_THAT(Files(folder_), SizeIs(12));
}

TEST_F(Recording, ConflictsWithAnother) {
  Open();
  pvr::StartRecording(101);
  pvr::StartRecording(102);
  EXPECT_THAT(Everything(),
              ElementsAre("operation 1 request 1 result 0 program 101 duration 0", "recording",
                          "operation 1 request 2 result -1 program 102 duration 0", "conflict", "recording"));
  EXPECT_THAT(TheFile(), HasSubstr("-101.ts"));
}

TEST_F(Recording, IsNotAffectedByTheSimulation) {
  pvr::SetFreeSpace(0);
  Open();
  pvr::StartRecording(102);
  pvr::AdvanceRecording(100);
  pvr::SetFreeSpace(10);
  pvr::SetFreeSpace(0);
  EXPECT_EQ(pvr::State(), PVR_STATE_RECORDING);
  pvr::StopRecording();
  EXPECT_THAT(Everything().at(2), HasSubstr("result 0 program 102 duration 0"));
}

TEST_F(Recording, IsSimulatedWithoutABroadcast) {
  pvr::StartRecording(101);
  pvr::AdvanceRecording(3);
  pvr::StopRecording();
  EXPECT_THAT(Everything().at(2), HasSubstr("duration 3"));
  EXPECT_FALSE(std::filesystem::exists(folder_));
}

TEST_F(Recording, NeedsAFolderThatTakesIt) {
  setenv("LUMIO_RECORDINGS", "/proc/recordings", 1);
  Open();
  EXPECT_THAT(StderrOf([] { pvr::StartRecording(101); }),
              AllOf(HasSubstr("recording: /proc/recordings/"), HasSubstr("No such file or directory")));
  EXPECT_THAT(Everything(), ElementsAre("operation 1 request 1 result -2 program 101 duration 0", "disk full"));
  setenv("LUMIO_RECORDINGS", folder_.c_str(), 1);
  pvr::StartRecording(101);
  EXPECT_EQ(pvr::State(), PVR_STATE_RECORDING);
}

TEST_F(Recording, EndsWhenTheFileTakesNoMore) {
  signal(SIGXFSZ, SIG_IGN);
  Open();
  pvr::StartRecording(102);
  const rlimit limit = {100000, RLIM_INFINITY}; // not a number of packets
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  const std::string log = StderrOf([] { broadcast::Advance(20s); });
  const rlimit none = {RLIM_INFINITY, RLIM_INFINITY};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
  EXPECT_THAT(log, AllOf(HasSubstr("-102.ts"), HasSubstr("File too large")));
  EXPECT_EQ(pvr::State(), PVR_STATE_DISK_FULL);
  EXPECT_THAT(Everything(),
              ElementsAre("operation 1 request 1 result 0 program 102 duration 0", "recording",
                          MatchesRegex("operation 2 request 1 result -2 program 102 duration [1-9].*"), "disk full"));
  EXPECT_EQ(std::filesystem::file_size(TheFile()), 100000 / 188 * 188U);
  EXPECT_EQ(Info(TheFile())["sync_losses"], 0);
  EXPECT_THAT(ProgramsByFfprobe(TheFile()), SizeIs(1));
}

TEST_F(Recording, TellsWhenTheFileDoesNotTakeItsEnd) {
  signal(SIGXFSZ, SIG_IGN);
  Open();
  pvr::StartRecording(102);
  broadcast::Advance(4s);
  const rlimit limit = {std::filesystem::file_size(TheFile()) + 100, RLIM_INFINITY}; // not a number of packets
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  const std::string log = StderrOf([] { pvr::StopRecording(); });
  const rlimit none = {RLIM_INFINITY, RLIM_INFINITY};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
  EXPECT_THAT(log, HasSubstr("File too large"));
  EXPECT_THAT(Everything(), ElementsAre("operation 1 request 1 result 0 program 102 duration 0", "recording",
                                        "operation 2 request 2 result -2 program 102 duration 3", "disk full"));
  EXPECT_EQ(std::filesystem::file_size(TheFile()), limit.rlim_cur / 188 * 188);
}

namespace {

std::string g_disk;      // that was asked about
struct statvfs g_answer; // zero: fails
std::vector<int> g_free;

} // namespace

// Replaces the system's function.
int statvfs(const char *path, struct statvfs *status) noexcept {
  g_disk = path;
  *status = g_answer;
  return g_answer.f_frsize == 0 ? -1 : 0;
}

TEST_F(Recording, TellsTheFreeSpaceOfItsDisk) {
  svc_pvr_register_to_other_apps_cb([](ps_result_thirdpart result, void *) { g_free.push_back(result.free_space); },
                                    nullptr);
  Open();
  pvr::SetFreeSpace(77); // of the simulated disk
  g_answer.f_frsize = 512;
  g_answer.f_bfree = 1 << 30;
  g_answer.f_bavail = 5 * 2048 + 2047; // the rest is not for us
  pvr::StartRecording(101);
  EXPECT_EQ(g_disk, folder_);
  g_answer.f_frsize = 1 << 20;
  g_answer.f_bavail = 1ULL << 40;
  pvr::StopRecording();
  g_answer = {};
  pvr::StartRecording(101);
  pvr::Flush();
  EXPECT_THAT(g_free, ElementsAre(5, INT_MAX, 0));
}

TEST_F(Recording, PlaysAfterItsProcessWasKilled) {
  const pid_t child = fork();
  if (child == 0) {
    broadcast::Options options;
    options.clock = broadcast::Clock::Virtual;
    broadcast::Open(LUMIO_SAMPLE, options);
    pvr::StartRecording(101);
    broadcast::Advance(10s);
    kill(getpid(), SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status));
  const Json info = Info(TheFile());
  EXPECT_GT(info["packets"], 2000);
  EXPECT_EQ(info["sync_losses"], 0);
  EXPECT_EQ(info["services"][0]["name"], "Lumio One");
  EXPECT_THAT(ProgramsByFfprobe(TheFile()), SizeIs(1));
}

TEST_F(Recording, GoesIntoTheVideosFolder) {
  unsetenv("LUMIO_RECORDINGS");
  unsetenv("XDG_CONFIG_HOME");
  const std::string home = directory_ / "home";
  setenv("HOME", home.c_str(), 1);
  Open();
  const auto expect_in = [&](const std::string &folder) {
    pvr::StartRecording(101);
    pvr::StopRecording();
    EXPECT_THAT(Files(folder), SizeIs(1));
  };
  unsetenv("XDG_VIDEOS_DIR");
  expect_in(home + "/Videos");
  std::filesystem::create_directories(home + "/.config");
  std::ofstream(home + "/.config/user-dirs.dirs") << "# comment\nXDG_MUSIC_DIR=\"$HOME/Musik\"\n"
                                                  << "XDG_VIDEOS_DIR=\"$HOME/Filme\"\n";
  expect_in(home + "/Filme");
  std::ofstream(home + "/.config/user-dirs.dirs") << "XDG_VIDEOS_DIR=\"" << home << "/elsewhere\"\n";
  expect_in(home + "/elsewhere");
  setenv("XDG_VIDEOS_DIR", (home + "/named").c_str(), 1);
  expect_in(home + "/named");
}
