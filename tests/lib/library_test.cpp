// SPDX-License-Identifier: Apache-2.0

// The library as a program that links it meets it: values that can be copied, one kind of failure, and the
// same tables as the program's, whichever way a trace comes in.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <thread>

#include "reflyze/reflyze.h"

namespace {

using namespace reflyze;

std::string Example(const std::string& name) { return std::string(REFLYZE_SOURCE_DIR) + "/examples/" + name; }

std::string LinkText(const std::string& name) {
  std::ifstream in(Example(name));
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

Trace Baseline40() { return Trace::Open(Example("baseline-40km.sor")); }

ErrorKind KindOf(const std::function<void()>& work, const std::string& part) {
  try {
    work();
  } catch (const Error& error) {
    EXPECT_NE(std::string(error.what()).find(part), std::string::npos) << error.what();
    EXPECT_EQ(error.file().empty() ? error.sentence() : error.file() + ": " + error.sentence(), error.what());
    return error.kind();
  }
  ADD_FAILURE() << "no error: " << part;
  return ErrorKind::kUsage;
}

// A trace that somebody else holds is copied, one that is moved in is not. The table is the same.
TEST(Library, TracesAreValues) {
  const Trace trace = Baseline40();
  const std::string bytes = trace.Bytes();
  const std::vector<double> levels = trace.LevelsDb();
  const EventTable kept = Analyse(trace), moved = Analyse(Baseline40()), again = Analyse(trace);
  EXPECT_EQ(JsonOf(kept), JsonOf(moved));
  EXPECT_EQ(JsonOf(kept), JsonOf(again));
  EXPECT_EQ(kept.record.Bytes(), moved.record.Bytes());
  EXPECT_EQ(trace.Bytes(), bytes);
  EXPECT_EQ(trace.LevelsDb(), levels);
  ASSERT_EQ(trace.DistancesKm().size(), levels.size());
  EXPECT_EQ(static_cast<size_t>(trace.GetCard().points), levels.size());
  ASSERT_GT(kept.events.size(), 2u);

  // The file has the events that were found, and they are read from it as they were told: to its steps of
  // 0.001 dB and 0.001 dB/km. Nobody measures them then.
  const EventTable stored = StoredEvents(kept.record.Read());
  EXPECT_EQ(kept.measurement, Measurement::kDone);
  EXPECT_EQ(stored.measurement, Measurement::kNone);
  EXPECT_EQ(stored.lengthKm, kept.lengthKm);
  EXPECT_EQ(stored.totalLossDb, kept.totalLossDb);
  EXPECT_EQ(stored.returnLossDb, kept.returnLossDb);
  ASSERT_EQ(stored.events.size(), kept.events.size());
  const auto expectSame = [](std::optional<double> inFile, std::optional<double> told) {
    ASSERT_EQ(inFile.has_value(), told.has_value());
    EXPECT_NEAR(inFile.value_or(0.0), told.value_or(0.0), 0.000501);
  };
  for (size_t i = 0; i < kept.events.size(); ++i) {
    const Event &inFile = stored.events[i], &told = kept.events[i];
    expectSame(inFile.lossDb, told.lossDb);
    expectSame(inFile.reflectanceDb, told.reflectanceDb);
    expectSame(inFile.attenuationDbPerKm, told.attenuationDbPerKm);
    EXPECT_EQ(std::tie(inFile.number, inFile.eptOwt, inFile.distanceKm, inFile.code, inFile.type,
                       inFile.markersOwt),
              std::tie(told.number, told.eptOwt, told.distanceKm, told.code, told.type, told.markersOwt));
    EXPECT_FALSE(inFile.lossSdDb || inFile.distanceSdM || inFile.probability || inFile.module);
    EXPECT_TRUE(told.distanceSdM && told.probability && told.lossSdDb.has_value() == told.lossDb.has_value());
  }
}

TEST(Library, SideBySideAsAlone) {
  const Trace trace = Baseline40();
  const std::string alone = JsonOf(Analyse(trace));
  std::vector<std::string> found(4);
  std::vector<std::thread> threads;
  for (std::string& text : found) threads.emplace_back([&] { text = JsonOf(Analyse(trace)); });
  for (std::thread& thread : threads) thread.join();
  for (const std::string& text : found) EXPECT_EQ(text, alone);
}

// Reasons change no result. Each end of the fibre and each event between has one; so has what was dropped.
TEST(Library, TellsWhy) {
  AnalyseOptions options;
  options.explain = true;
  for (const char* name : {"metro-40km.sor", "access-2km.sor", "long-80km.sor", "current-40km.sor"}) {
    SCOPED_TRACE(name);
    const Trace trace = Trace::Open(Example(name));
    EventTable told = Analyse(trace, options);
    const EventTable silent = Analyse(trace);
    EXPECT_TRUE(silent.reasons.empty());
    EXPECT_EQ(told.record.Bytes(), silent.record.Bytes());
    bool end = false;
    for (const Reason& reason : told.reasons) {
      end = end || reason.choice == "end";
      EXPECT_FALSE(reason.sentence.empty());
      EXPECT_GE(reason.search, 1);
    }
    EXPECT_TRUE(end);
    const std::string text = TextOf(told);
    EXPECT_NE(text.find("\nWhy\n"), std::string::npos);
    EXPECT_NE(JsonOf(told).find("\"why\":[{"), std::string::npos);
    told.reasons.clear();
    EXPECT_EQ(TextOf(told), TextOf(silent));
    EXPECT_EQ(JsonOf(told), JsonOf(silent));
  }
}

TEST(Library, WatchesAFibre) {
  Monitoring monitoring;
  monitoring.level = "main";
  monitoring.search = {{5.0, 30.0}};
  const Baseline baseline = MakeBaseline(Baseline40(), monitoring);
  EXPECT_EQ(baseline.monitoring.level, "main");
  ASSERT_EQ(baseline.monitoring.search.size(), 1u);
  EXPECT_NEAR(baseline.monitoring.search[0].toKm, 30.0, 0.001);
  const Trace watched = baseline.record.Read();
  EXPECT_FALSE(Compare(watched, Baseline40()).Changed());
  const Comparison changed = Compare(watched, Trace::Open(Example("current-40km.sor")));
  EXPECT_TRUE(changed.Changed());
  EXPECT_FALSE(ChangesOf(changed).empty());
  // What is remembered of one baseline is not taken for another's, nor for one with a new event in it.
  BaselineMemory memory(2);
  const Trace other = MakeBaseline(Trace::Open(Example("current-40km.sor")), monitoring).record.Read();
  for (const Trace* held : {&watched, &watched, &other, &watched}) {
    for (const char* name : {"baseline-40km.sor", "current-40km.sor"}) {
      const Trace now = Trace::Open(Example(name));
      const Comparison fresh = Compare(*held, now), remembered = Compare(*held, now, memory);
      EXPECT_EQ(fresh.record.Bytes(), remembered.record.Bytes());
      EXPECT_EQ(ChangesOf(fresh), ChangesOf(remembered));
      ASSERT_EQ(fresh.rows.size(), remembered.rows.size());
      for (std::size_t i = 0; i < fresh.rows.size(); ++i) {
        EXPECT_EQ(fresh.rows[i].loss.measured, remembered.rows[i].loss.measured);
        EXPECT_EQ(fresh.rows[i].loss.measuredSd, remembered.rows[i].loss.measuredSd);
      }
    }
  }
  CompareOptions recheck;
  recheck.recheck = true;
  EXPECT_TRUE(Compare(watched, changed.record.Read(), recheck).fail);

  const auto refused = [&](const std::function<void(Monitoring&)>& spoil, const char* part) {
    Monitoring wrong = monitoring;
    spoil(wrong);
    EXPECT_EQ(KindOf([&] { MakeBaseline(Baseline40(), wrong); }, part), ErrorKind::kUsage) << part;
  };
  refused([](Monitoring& m) { m.level = "  "; }, "no name");
  refused([](Monitoring& m) { m.level = "a\nb"; }, "one line");
  refused(
      [](Monitoring& m) {
        m.level =
            "a\xC2\x85"
            "b";
      },
      "one line");
  refused([](Monitoring& m) { m.ltDb = 32.6; }, "32.6 is not between 0 and 32.5");
  refused([](Monitoring& m) { m.search = {{3.0, 3.0}}; }, "no length");
  refused([](Monitoring& m) { m.search = {{3.0, 3000.0}}; }, "not on the trace");
  refused([](Monitoring& m) { m.settings = {{"AutoLt", 1.0}}; }, "\"AutoLt\"");
  refused([](Monitoring& m) { m.settings = {{"AutoLT", -0.1}}; }, "AutoLT: -0.1");
}

// A picture of the fit: each line has the slope of its section and runs through the middle of its points,
// with a user offset too.
TEST(Library, SectionLinesLieOnTheirTrace) {
  std::size_t seen = 0;
  for (const char* name : {"metro-40km.sor", "access-2km.sor", "current-40km.sor"}) {
    const Trace trace = Trace::Open(Example(name));
    const EventTable table = Analyse(trace);
    const auto lines = SectionLinesOf(trace, table);
    ASSERT_EQ(lines.size(), table.events.size());
    EXPECT_FALSE(lines[0]) << "in front of the launch there is no fibre";
    for (std::size_t i = 1; i < lines.size(); ++i) {
      ASSERT_EQ(lines[i].has_value(), table.events[i].attenuationDbPerKm.has_value()) << name << i;
      if (!lines[i]) continue;
      const SectionLine& line = *lines[i];
      EXPECT_GE(line.fromKm, table.events[i - 1].distanceKm) << name << i;
      EXPECT_LE(line.toKm, table.events[i].distanceKm + 0.002) << name << i;
      EXPECT_NEAR((line.fromDb - line.toDb) / (line.toKm - line.fromKm), *table.events[i].attenuationDbPerKm,
                  1e-9);
      double sum = 0.0, count = 0.0;
      for (std::size_t j = 0; j < trace.DistancesKm().size(); ++j) {
        const double km = trace.DistancesKm()[j];
        if (km < line.fromKm || km > line.toKm) continue;
        sum += trace.LevelsDb()[j] - line.fromDb + (km - line.fromKm) * *table.events[i].attenuationDbPerKm;
        ++count;
      }
      ASSERT_GT(count, 10.0);
      EXPECT_NEAR(sum / count, 0.0, 0.01) << name << i;
      ++seen;
    }
  }
  EXPECT_GE(seen, 12u);
}

TEST(Library, SimulatesMergesJudgesAndFilters) {
  const std::string link = LinkText("links/metro-40km.json");
  const Simulation one = Simulate(link, 3, "one.sor");
  EXPECT_EQ(one.trace.Name(), "one.sor");
  EXPECT_EQ(one.trace.Bytes(), Simulate(link, 3, "two.sor").trace.Bytes());
  const QualityTable quality = Quality(one.trace);
  ASSERT_TRUE(quality.fibre);
  EXPECT_NEAR(quality.lengthKm, one.truth.lengthKm, 0.01);
  EXPECT_FALSE(Filter(one.trace).events.empty());
  EXPECT_EQ(KindOf([&] { Merge(one.trace, one.trace); }, "same trace"), ErrorKind::kUnreadable);
  const MergedTable merged = Merge(one.trace, Simulate(link, 4, "b.sor").trace);
  EXPECT_FALSE(merged.warnings.empty());  // both look along the fibre in the same direction
  EXPECT_EQ(KindOf([&] { Simulate("{}", 1, "x", "my.json"); }, "my.json: "), ErrorKind::kUnreadable);
}

// Two bright connectors and what they send to and fro. What stands at the place of an echo and reflects more
// than it, or loses light, is none.
TEST(Library, EchoesAreCalledEchoes) {
  const auto typesOf = [](const std::string& ghosts, const std::string& joint) {
    const std::string link = R"({"wavelength_nm": 1550, "pulse_ns": 100, "range_km": 12, "points": 12000,
        "averages": 30000, "launch_level_db": -28, "ghosts": )" +
                             ghosts + R"(,
        "launch": {"reflectance_db": -24},
        "sections": [{"length_km": 1.3}, {"length_km": 1.3}, {"length_km": 0.8}, {"length_km": 5.5}],
        "joints": [{"loss_db": 0.3, "reflectance_db": -20}, )" +
                             joint + R"(,
                   {"loss_db": 0.4, "reflectance_db": -22}],
        "end": {"reflectance_db": -14.7}, "receiver": {"bandwidth_mhz": 20, "noise_db": -40}})";
    AnalyseOptions options;
    options.thresholds.lossDb = 0.05;
    options.thresholds.reflectanceDb = -70.0;
    std::string types;
    for (const Event& event : Analyse(Simulate(link).trace, options).events) {
      EXPECT_EQ(event.lossDb.has_value(), event.type == "reflective");
      EXPECT_EQ(event.cumulatedDb.has_value(), true);
      types += event.type.substr(0, 2) + " ";
    }
    return types;
  };
  EXPECT_EQ(typesOf("true", R"({"loss_db": 0.0})"), "la re ec re ec ec en ");
  EXPECT_EQ(typesOf("false", R"({"loss_db": 0.0, "reflectance_db": -50})"), "la re re re en ");
  EXPECT_EQ(typesOf("false", R"({"loss_db": 0.2, "reflectance_db": -63})"), "la re re re en ");
}

// The program checks its options before it calls; the library's other users rest on the library.
TEST(Library, RefusesWhatMakesNoSense) {
  const Trace trace = Baseline40();
  const auto refused = [](const std::function<void()>& work, const char* part) {
    EXPECT_EQ(KindOf(work, part), ErrorKind::kUsage) << part;
  };
  for (const double slip : {52.0, std::nan(""), -HUGE_VAL}) {
    AnalyseOptions options;
    options.thresholds.reflectanceDb = slip;
    refused([&] { Analyse(trace, options); }, "threshold of reflectance");
    refused([&] { Merge(trace, trace, {options.thresholds, {}}); }, "threshold of reflectance");
    FilterOptions filter;
    filter.level = slip;
    refused([&] { Filter(trace, filter); }, "is not between 0.1 and 10");
  }
  refused([&] { Filter(trace, {static_cast<FilterKind>(6), {}}); }, "no filter of kind 6");
  for (const int percent : {-1, 101}) refused([&] { Quality(trace, {{}, percent}); }, " % is no part");

  Trace away = trace;
  const Trace there = std::move(away);
  refused([&] { away.GetCard(); }, "moved away");
  refused([&] { Analyse(std::move(away)); }, "moved away");
  away = there;
  EXPECT_EQ(JsonOf(StoredEvents(away.Part(0))), JsonOf(StoredEvents(trace)));

  const std::string name = testing::TempDir() + "one", same = testing::TempDir() + "./one";
  EXPECT_EQ(KindOf([&] { SaveTogether({{name, "a"}, {same, "b"}}); }, "two outputs"), ErrorKind::kUnwritable);
  EXPECT_FALSE(std::filesystem::exists(name));
}

// Wherever the map of a file is wrong, whatever is asked of the trace is answered or ends in an Error.
TEST(Library, NothingElseIsThrownOverADamagedMap) {
  constexpr size_t kMapBytes = 102;
  const std::vector<char> whole = ReadFile(Example("metro-40km.sor"));
  CopyOptions native;
  native.native = true;
  int refused = 0;
  for (size_t at = 0; at < kMapBytes; ++at) {
    std::vector<char> bytes = whole;
    bytes[at] = '\3';
    try {
      const Trace trace = Trace::FromBytes("damaged", bytes);
      EXPECT_EQ(trace.LevelsDb().size(), static_cast<size_t>(trace.GetCard().points));
      trace.Part(0).Bytes(native);
    } catch (const Error&) {
      ++refused;
    }
  }
  EXPECT_GT(refused, 0);
}

TEST(Library, FailuresAreOfOneKind) {
  EXPECT_EQ(KindOf([] { Trace::Open("/nowhere/a.sor"); }, "/nowhere/a.sor: "), ErrorKind::kUnreadable);
  EXPECT_EQ(KindOf([] { Trace::Open("/"); }, "is a folder"), ErrorKind::kUnreadable);
  EXPECT_EQ(KindOf([] { Trace::FromBytes("-", {}); }, "standard input: is empty"), ErrorKind::kUnreadable);
  EXPECT_EQ(KindOf([] { Trace::Open("a", {"klingon"}); }, "a: "), ErrorKind::kUnreadable);
  EXPECT_EQ(KindOf([] { Trace::FromBytes("a", {'a'}, {"klingon"}); }, "klingon"), ErrorKind::kUsage);
  EXPECT_EQ(KindOf([] { Baseline40().Part(1); }, "has no trace 2 of its own"), ErrorKind::kUnreadable);
  EXPECT_EQ(KindOf([] { Baseline40().Save("/nowhere/a.sor"); }, "/nowhere/a.sor: "), ErrorKind::kUnwritable);
  EXPECT_EQ(KindOf([] { StoredRecord().Bytes(); }, "no record"), ErrorKind::kUnwritable);
  const std::string bytes = Baseline40().Bytes();
  const Trace cut = Trace::FromBytes("cut", {bytes.begin(), bytes.begin() + bytes.size() / 2});
  EXPECT_EQ(cut.WhyUnusable(), "ends inside its samples");
  EXPECT_FALSE(cut.Warnings().empty());
  try {
    Analyse(cut);
  } catch (const Error& error) {
    EXPECT_EQ(error.block(), "DataPts");
    EXPECT_EQ(error.offset(), static_cast<long long>(bytes.size() / 2));
  }
  EXPECT_EQ(KindOf([&] { Analyse(cut); }, "cut: ends inside its samples"), ErrorKind::kUnreadable);
  CopyOptions native;
  native.native = true;
  EXPECT_EQ(KindOf([&] { cut.Bytes(native); }, "only be copied as it stands"), ErrorKind::kUnreadable);
  EXPECT_EQ(cut.Bytes(), bytes.substr(0, bytes.size() / 2));
  EXPECT_EQ(KindOf([] { ThresholdDocument::FromText("t.ini", "[A]\nx=1\n"); }, "t.ini: section [NON]"),
            ErrorKind::kUnreadable);
}

}  // namespace
