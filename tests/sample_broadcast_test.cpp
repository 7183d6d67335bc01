// The sample broadcast, as lumio-tv makes it and tells what it holds, and as ffprobe sees it.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "run_command.h"
#include "temporary_directory.h"

using Json = nlohmann::json;
using testing::HasSubstr;

namespace {

Json Info() { return Json::parse(RunCommand({LUMIO_TV, "info", "--json", LUMIO_SAMPLE}).output); }

Json FfprobeOf(const std::vector<std::string> &options) {
  std::vector<std::string> command = {"/usr/bin/env", "ffprobe", "-v", "quiet", "-of", "json"};
  command.insert(command.end(), options.begin(), options.end());
  command.emplace_back(LUMIO_SAMPLE);
  return Json::parse(RunCommand(command).output);
}

std::string Content(const std::string &file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// What each object of a list has under a name.
Json Each(const Json &list, const char *name) {
  Json values = Json::array();
  for (const Json &object : list) {
    values.push_back(object.at(name));
  }
  return values;
}

} // namespace

TEST(SampleBroadcast, IsMadeAlikeEachTime) {
  const lumio::TemporaryDirectory directory;
  const Ran ran = RunCommand({LUMIO_TV, "make", directory / "again.ts"});
  EXPECT_EQ(ran.error + ran.output, "");
  EXPECT_EQ(ran.status, 0);
  EXPECT_TRUE(Content(directory / "again.ts") == Content(LUMIO_SAMPLE));
}

TEST(SampleBroadcast, HasAtMostThreeMegabytes) { EXPECT_LE(std::filesystem::file_size(LUMIO_SAMPLE), 3000000U); }

TEST(SampleBroadcast, IsNotMadeWhereItCannotBeWritten) {
  const Ran missing = RunCommand({LUMIO_TV, "make", "/nowhere/sample.ts"});
  EXPECT_EQ(missing.error, "lumio-tv: /nowhere/sample.ts: No such file or directory\n");
  EXPECT_EQ(missing.status, 1);
  const Ran full = RunCommand({"/usr/bin/env", "LD_PRELOAD=" IDLE_ENCODERS, "ASAN_OPTIONS=verify_asan_link_order=0",
                               LUMIO_TV, "make", "/dev/full"});
  EXPECT_EQ(full.error, "lumio-tv: /dev/full: No space left on device\n");
  EXPECT_EQ(full.status, 1);
}

TEST(SampleBroadcast, IsNotMadeWithoutItsEncoders) {
  const lumio::TemporaryDirectory directory;
  const Ran ran = RunCommand({"/usr/bin/env", "LD_PRELOAD=" NO_ENCODERS, "ASAN_OPTIONS=verify_asan_link_order=0",
                              LUMIO_TV, "make", directory / "sample.ts"});
  EXPECT_EQ(ran.error, "lumio-tv: the sample broadcast cannot be made: libavcodec: cannot find the encoder "
                       "mpeg2video\n");
  EXPECT_EQ(ran.status, 1);
}

TEST(SampleBroadcast, IsNotMadeWithoutTheProgramThatMakesIt) {
  const lumio::TemporaryDirectory directory;
  std::filesystem::copy(LUMIO_TV, directory / "lumio-tv");
  const Ran ran =
      RunCommand({"/usr/bin/env", "LD_LIBRARY_PATH=" LIBRARIES, directory / "lumio-tv", "make", "sample.ts"});
  EXPECT_EQ(ran.error, "lumio-tv: " + directory / "lumio-tv-make" + ": No such file or directory\n");
  EXPECT_EQ(ran.status, 1);
}

TEST(SampleBroadcast, IsMadeInOneFile) {
  for (const std::vector<std::string> &arguments : {std::vector<std::string>{}, {"a.ts", "b.ts"}}) {
    std::vector<std::string> command = {LUMIO_TV, "make"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const Ran ran = RunCommand(command);
    EXPECT_THAT(ran.error, HasSubstr("usage: lumio-tv"));
    EXPECT_EQ(ran.status, 2);
  }
}

TEST(SampleBroadcast, HasOneDamagedStretch) {
  const Json info = Info();
  EXPECT_EQ(info["packets"], (std::filesystem::file_size(LUMIO_SAMPLE) - 1000) / 188);
  EXPECT_EQ(info["packet_size"], 188);
  EXPECT_EQ(info["sync_losses"], 1);
  EXPECT_EQ(info["transport_errors"], 1);
  EXPECT_EQ(info["continuity_errors"], 1);
}

TEST(SampleBroadcast, HasTwoServices) {
  const Json services = Info()["services"];
  EXPECT_EQ(Each(services, "id"), Json({101, 102}));
  EXPECT_EQ(Each(services, "name"), Json({"Lumio One", "Lumio Two"}));
  EXPECT_EQ(Each(services, "provider"), Json({"Lumio", "Lumio"}));
  EXPECT_EQ(Each(services, "pmt_pid"), Json({0x100, 0x200}));
  EXPECT_EQ(Each(services, "pcr_pid"), Json({0x101, 0x201}));
  EXPECT_EQ(Each(services, "scrambled"), Json({false, true}));
  EXPECT_EQ(Each(services[0]["streams"], "kind"), Json({"video", "audio", "teletext", "carousel"}));
  EXPECT_EQ(Each(services[1]["streams"], "kind"), Json({"video", "audio"}));
}

TEST(SampleBroadcast, ChangesItsProgrammes) {
  const Json info = Info();
  const Json &service = info["services"][0];
  EXPECT_EQ(service["present"], Json::parse(R"({"event_id": 10120, "start": "2026-11-21T20:15:00Z", "duration": 3600,
                                                "title": "The Evening News"})"));
  EXPECT_EQ(service["following"], Json::parse(R"({"event_id": 10121, "start": "2026-11-21T21:15:00Z", "duration": 3600,
                                                  "title": "The Lighthouse Keeper"})"));
  const auto table = [&](int id) {
    for (const Json &one : info["tables"]) {
      if (one["pid"] == 0x12 && one["table_id"] == id) {
        return one;
      }
    }
    return Json();
  };
  EXPECT_EQ(table(0x4e)["versions"], Json::array({0, 1}));
  EXPECT_EQ(table(0x50)["versions"], Json::array({0}));
  EXPECT_THAT(RunCommand({LUMIO_TV, "info", LUMIO_SAMPLE}).output, HasSubstr("programmes 24 known"));
}

TEST(SampleBroadcast, HasCaptionsInTwoLanguagesOfEachKind) {
  const Json captions = Info()["captions"];
  EXPECT_EQ(Each(captions, "kind"), Json({"cea608", "cea608", "teletext", "teletext", "cea608"}));
  EXPECT_EQ(Each(captions, "language"), Json({"eng", "spa", "eng", "deu", "eng"}));
  EXPECT_EQ(Each(captions, "pid"), Json({0x101, 0x101, 0x103, 0x103, 0x201}));
  EXPECT_EQ(captions[0]["texts"], Json({"Good evening.", "The light is on again.", "Who keeps it burning?"}));
  EXPECT_EQ(captions[1]["texts"], Json({"Buenas noches.", "La luz arde otra vez.", "Y quien la cuida?"}));
  EXPECT_EQ(captions[2]["texts"], captions[0]["texts"]);
  EXPECT_EQ(captions[3]["texts"], Json({"Guten Abend.", "Das Licht brennt wieder.", "Wer passt darauf auf?"}));
  EXPECT_EQ(captions[4]["texts"], Json({"White plays knight to f3.", "Black takes his time.", "Now the bishop."}));
}

TEST(SampleBroadcast, HasACarouselWhoseModuleChanges) {
  // The digests are those of sha256sum.
  EXPECT_EQ(Info()["carousels"], Json::parse(R"([{"pid": 260, "modules": [
    {"id": 1, "version": 0, "size": 39, "sha256": "e387f58b08630b68b361aeda7eaa5b04708063ba4b4d5f8069b828b3369dd441"},
    {"id": 1, "version": 1, "size": 20, "sha256": "84f3e8cbb109f2c055395a0aaf92ef64373a0b92603c3bfb9a4b2addf268c08f"},
    {"id": 2, "version": 0, "size": 2000, "sha256": "6f4b7917eee3eaed45a0167cf23102c36f35d3bc5a67d4da4ab1f5bc5edc24a1"}
  ]}])"));
}

TEST(SampleBroadcast, HasPicturesAndSound) {
  const Json programs = FfprobeOf({"-show_programs"})["programs"];
  EXPECT_EQ(Each(programs, "program_id"), Json({101, 102}));
  EXPECT_EQ(programs[0]["tags"]["service_name"], "Lumio One");
  EXPECT_EQ(programs[0]["streams"][0]["codec_name"], "mpeg2video");
  EXPECT_EQ(programs[0]["streams"][1]["codec_name"], "mp2");
  EXPECT_EQ(programs[0]["streams"][2]["codec_name"], "dvb_teletext");
  EXPECT_EQ(programs[1]["streams"][0]["codec_name"], "h264");
  const Json pictures = FfprobeOf({"-count_frames", "-select_streams", "v", "-show_streams"})["streams"];
  EXPECT_EQ(Each(pictures, "nb_read_frames"), Json({"483", "483"}));
}
