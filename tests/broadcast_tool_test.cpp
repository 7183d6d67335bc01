// lumio-tv info and watch, on streams whose numbers are known.
#include <gmock/gmock.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "run_command.h"
#include "temporary_directory.h"
#include "transport_stream.h"

using Json = nlohmann::ordered_json;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using ts::operator+;

namespace {

class Tool : public testing::Test {
protected:
  std::string Write(const ts::Bytes &bytes) {
    const std::string path = directory_ / "stream.ts";
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return path;
  }
  Json Info(const ts::Bytes &bytes) {
    const Ran ran = RunCommand({LUMIO_TV, "info", "--json", Write(bytes)});
    EXPECT_EQ(ran.error, "");
    return Json::parse(ran.output);
  }

private:
  lumio::TemporaryDirectory directory_;
};

ts::Event EventAt(unsigned id, std::int64_t start, const std::string &title) {
  return {id, ts::Time(start), ts::Duration(3600), ts::Text(title), {}};
}

// A stream with some of everything that is told.
ts::Stream Everything() {
  constexpr std::int64_t kStart = 1795378500; // 2026-11-22T20:15:00Z
  const ts::Bytes teletext =
      ts::Descriptor(0x56, ts::Text("deu") + ts::Bytes{0x10, 0x88} + ts::Text("eng") + ts::Bytes{0x11, 0x50});
  const ts::Bytes captions = ts::Descriptor(0x86, ts::Bytes{0xc1} + ts::Text("eng") + ts::Bytes{0x7e, 0x3f, 0xff});
  ts::Stream stream;
  stream.Section(0x00, ts::Pat(3, {{0, 0x1f0}, {2, 0x110}, {1, 0x100}, {3, 0x120}}));
  stream.Section(0x1f0, ts::LongSection(0x40, 1, {6}, ts::Bytes(4, 0))); // the network's
  stream.Section(
      0x11,
      ts::Sdt(3, 2, {{1, ts::Text("Lumio"), ts::Bytes{'C', 'a', 'f', 0xc2, 'e'}}, {9, {}, ts::Text("Absent")}}, {4}));
  stream.Section(0x11, ts::Sdt(8, 2, {{2, {}, ts::Text("Other stream")}}, {}, 0x46));
  stream.Section(
      0x100, ts::Pmt(1, 0x101, {{0x02, 0x101, captions}, {0x03, 0x102, {}}, {0x06, 0x103, teletext}, {0x0b, 0x104, {}}},
                     {31}));
  stream.Section(0x110,
                 ts::Pmt(2, 0x1fff, {{0x1b, 0x111, {}}, {0x05, 0x112, {}}, {0x06, 0x14, {}}, {0x0b, 0x113, {}}}));
  stream.Section(0x112, ts::ShortSection(0x74, {1}));
  stream.Section(
      0x100,
      ts::Pmt(1, 0x101, {{0x02, 0x101, captions}, {0x03, 0x102, {}}, {0x06, 0x103, teletext}, {0x0b, 0x104, {}}}, {0}));
  ts::Bytes wrong = ts::Pmt(1, 0x1ff, {}, {7});
  wrong.back() ^= 1;
  stream.Section(0x100, wrong);
  stream.Section(0x12, ts::Eit(0x4e, {2, 3, 1}, {EventAt(1, kStart, "News")}, {0, 0, 1}));
  stream.Section(
      0x12, ts::Eit(0x4e, {2, 3, 1}, {{2, ts::Bytes(5, 0xff), ts::Bytes(3, 0xff), ts::Text("Film"), {}}}, {0, 1, 1}));
  stream.Section(0x12, ts::Eit(0x4f, {2, 9, 1}, {EventAt(9, kStart, "Elsewhere")}));
  stream.Section(0x14, ts::ShortSection(0x70, ts::Time(kStart)));
  for (const char *text : {"A", "A", "", "C", "D", "E"}) {
    stream.Pes(0x103, ts::Pes(0xbd, {90},
                              ts::TeletextPayload({ts::TeletextHeader(0x888), ts::TeletextRow(0x888, 20, text),
                                                   ts::TeletextHeader(0x8ff)})));
  }
  for (const std::string text : {"AB", "CD"}) {
    for (const ts::Pair &pair : {ts::Pair{0, 0x14, 0x20},
                                 {0, 0x14, 0x2e},
                                 {0, 0x14, 0x70},
                                 {0, static_cast<unsigned>(text[0]), static_cast<unsigned>(text[1])},
                                 {0, 0x14, 0x2f}}) {
      stream.Pes(0x101, ts::Pes(0xe0, {}, ts::Mpeg2Picture(0, {pair})));
    }
  }
  for (const unsigned version : {0, 1, 0}) {
    const ts::Module module{7, version, ts::Text(version == 0 ? "abc" : "")};
    stream.Section(0x104, ts::Dii(5, 2, {module, {8, 0, ts::Text("never complete")}}));
    for (unsigned block = 0; block * 2 < module.data.size(); ++block) {
      stream.Section(0x104, ts::Ddb(5, 2, module, block));
    }
  }
  ts::PacketOptions scrambled;
  scrambled.scrambling = 3;
  stream.Packet(0x111, ts::Bytes(184, 1), scrambled);
  stream.Packet(0x111, ts::Bytes(184, 2)); // clear again
  // The stream's end completes the packet and the page.
  stream.Pes(0x103, ts::Pes(0xbd, {90, ts::kNoPts, true},
                            ts::TeletextPayload({ts::TeletextHeader(0x150), ts::TeletextRow(0x150, 20, "End")})));
  return stream;
}

constexpr const char *kExpected = R"({
"packets":0,"packet_size":188,"sync_losses":0,"transport_errors":0,"continuity_errors":0,
"services":[
{"id":1,"name":"Café","provider":"Lumio","pmt_pid":256,"pcr_pid":257,"scrambled":false,
"streams":[{"pid":257,"type":2,"kind":"video"},{"pid":258,"type":3,"kind":"audio"},{"pid":259,"type":6,"kind":"teletext"},{"pid":260,"type":11,"kind":"carousel"}],
"present":{"event_id":1,"start":"2026-11-22T20:15:00Z","duration":3600,"title":"News"},
"following":{"event_id":2,"start":null,"duration":null,"title":"Film"}},
{"id":2,"name":"","provider":"","pmt_pid":272,"pcr_pid":8191,"scrambled":true,
"streams":[{"pid":273,"type":27,"kind":"video"},{"pid":274,"type":5,"kind":"section"},{"pid":20,"type":6,"kind":"other"},{"pid":275,"type":11,"kind":"carousel"}],"present":null,"following":null},
{"id":3,"name":"","provider":"","pmt_pid":288,"pcr_pid":null,"scrambled":false,"streams":[],"present":null,"following":null}],
"tables":[
{"pid":0,"table_id":0,"sections":1,"crc_errors":0,"versions":[0]},
{"pid":17,"table_id":66,"sections":1,"crc_errors":0,"versions":[4]},
{"pid":17,"table_id":70,"sections":1,"crc_errors":0,"versions":[0]},
{"pid":18,"table_id":78,"sections":2,"crc_errors":0,"versions":[0]},
{"pid":18,"table_id":79,"sections":1,"crc_errors":0,"versions":[0]},
{"pid":20,"table_id":112,"sections":1,"crc_errors":0,"versions":[]},
{"pid":256,"table_id":2,"sections":3,"crc_errors":1,"versions":[31,0]},
{"pid":260,"table_id":59,"sections":3,"crc_errors":0,"versions":[0]},
{"pid":260,"table_id":60,"sections":4,"crc_errors":0,"versions":[0]},
{"pid":272,"table_id":2,"sections":1,"crc_errors":0,"versions":[0]},
{"pid":274,"table_id":116,"sections":1,"crc_errors":0,"versions":[]},
{"pid":496,"table_id":64,"sections":1,"crc_errors":0,"versions":[6]}],
"captions":[
{"pid":257,"kind":"cea608","language":"eng","texts":["AB","CD"]},
{"pid":259,"kind":"teletext","language":"deu","texts":["A","C","D"]},
{"pid":259,"kind":"teletext","language":"eng","texts":["End"]}],
"carousels":[{"pid":260,"modules":[
{"id":7,"version":0,"size":3,"sha256":"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
{"id":7,"version":1,"size":0,"sha256":"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"}]},
{"pid":275,"modules":[]}]})";

} // namespace

TEST_F(Tool, TellsEverythingAsJson) {
  const ts::Stream stream = Everything();
  Json expected = Json::parse(kExpected);
  expected["packets"] = stream.Packets();
  EXPECT_EQ(Info(stream.bytes).dump(), expected.dump()); // also the names' order
}

TEST_F(Tool, TellsTheSameOfEachPacketSize) {
  const ts::Stream stream = Everything();
  Json expected = Info(stream.bytes);
  for (const auto &[before, after] : {std::pair<std::size_t, std::size_t>{4, 0}, {0, 16}}) {
    expected["packet_size"] = 188 + before + after;
    EXPECT_EQ(Info(ts::Framed(stream.bytes, before, after)).dump(), expected.dump());
  }
}

TEST_F(Tool, CountsErrors) {
  ts::Stream stream = Everything();
  ts::PacketOptions error;
  error.error = true;
  stream.Packet(0x101, ts::Bytes(184, 1), error); // has no continuity: the next one does not follow
  stream.Packet(0x101, ts::Bytes(184, 2));
  stream.Skip(0x102, 5);
  stream.Packet(0x102, ts::Bytes(184, 3));
  stream.Packet(0x102, ts::Bytes(184, 4));
  stream.Skip(0x102, 5);
  stream.Packet(0x102, ts::Bytes(184, 5));
  stream.Null();
  stream.Null();
  const std::size_t packets = stream.Packets();
  stream.Append(ts::Bytes(10, 0));
  for (int i = 0; i < 5; ++i) {
    stream.Null();
  }
  const Json json = Info(stream.bytes);
  EXPECT_EQ(json["packets"], packets + 5);
  EXPECT_EQ(json["transport_errors"], 1);
  EXPECT_EQ(json["continuity_errors"], 2); // the first packet of a PID follows whatever its counter
  EXPECT_EQ(json["sync_losses"], 1);
}

TEST_F(Tool, TellsALimitedNumberOfModules) {
  ts::Stream stream;
  stream.Section(0x00, ts::Pat(3, {{1, 0x100}}));
  stream.Section(0x100, ts::Pmt(1, 0x1fff, {{0x0b, 0x104, {}}}));
  unsigned id = 0;
  for (unsigned message = 0; message < 100; ++message) {
    std::vector<ts::Module> modules(400); // they are complete because they are empty
    for (ts::Module &module : modules) {
      module.id = ++id;
    }
    stream.Section(0x104, ts::Dii(1, 100, modules));
  }
  EXPECT_EQ(Info(stream.bytes)["carousels"][0]["modules"].size(), 32768U);
}

TEST_F(Tool, TellsPeopleToo) {
  const Ran ran = RunCommand({LUMIO_TV, "info", Write(Everything().bytes)});
  for (const char *part : {"Service 1  Café  by Lumio\n", "    present    2026-11-22T20:15:00Z  1:00:00  News\n",
                           "    following  (no time)  Film\n", "Captions in eng  PID 257, line 21\n    AB\n    CD\n",
                           "    module 7, version 0: 3 bytes, SHA-256 ba7816bf"}) {
    EXPECT_THAT(ran.output, HasSubstr(part));
  }
}

TEST_F(Tool, SaysWhatItCannotRead) {
  const std::string empty = Write({});
  const Ran ran = RunCommand({LUMIO_TV, "info", "--json", empty, "/nonexistent.ts"});
  EXPECT_EQ(ran.status, 1);
  EXPECT_EQ(ran.error, "lumio-tv: " + empty + ": not a transport stream\n" +
                           "lumio-tv: /nonexistent.ts: No such file or directory\n");
  EXPECT_EQ(Json::parse(ran.output)["packet_size"], nullptr);
  const Ran late = RunCommand({LUMIO_TV, "info", "/proc/self/mem", LUMIO_SAMPLE}); // the second one is fine
  EXPECT_EQ(late.status, 1);
  EXPECT_EQ(late.error, "lumio-tv: /proc/self/mem: Input/output error\n");
  EXPECT_THAT(late.output, HasSubstr("Lumio One"));
  EXPECT_EQ(RunCommand({LUMIO_TV, "watch", empty}).error, "lumio-tv: " + empty + ": not a transport stream\n");
  for (const std::vector<std::string> &wrong : {std::vector<std::string>{LUMIO_TV},
                                                {LUMIO_TV, "info"},
                                                {LUMIO_TV, "info", "--json"},
                                                {LUMIO_TV, "watch"},
                                                {LUMIO_TV, "watch", "--slow", empty},
                                                {LUMIO_TV, "watch", empty, empty},
                                                {LUMIO_TV, "listen"}}) {
    const Ran refused = RunCommand(wrong);
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.error, HasSubstr("usage: lumio-tv"));
  }
}

TEST_F(Tool, WatchesTheServiceThatIsAskedFor) {
  const Ran ran = RunCommand({LUMIO_TV, "watch", "--fast", "--service", "2", Write(Everything().bytes)});
  EXPECT_THAT(ran.output, AllOf(HasSubstr("  signal     service 2\n"), Not(HasSubstr("service 1\n"))));
}

TEST_F(Tool, PrintsWhatModulesAreTold) {
  const Ran ran = RunCommand({LUMIO_TV, "watch", "--fast", Write(Everything().bytes)});
  EXPECT_EQ(ran.error, "");
  EXPECT_EQ(ran.status, 0);
  for (const char *part :
       {"    0.000  signal     locked\n", "  signal     service 1\n", "  signal     video PID 257, type 0x02\n",
        "  signal     lost\n", "  section    PID 256, table 0x02, 16 bytes, wrong checksum\n",
        "  programme  present 0: service 1, event 1, 2026-11-22T20:15:00Z, 1:00:00, \"News\"\n",
        "  programme  following 1: service 1, event 2, no time, 0:00:00, \"Film\"\n", "  caption    deu, PTS 90: A\n",
        "  PES        PID 259, stream 0xbd, PTS 90, "}) {
    EXPECT_THAT(ran.output, HasSubstr(part));
  }
}
