// SPDX-License-Identifier: Apache-2.0

// Both directions of a simulated link, and the quality of its traces, as the program tells them.

#include <algorithm>

#include "tests/cli/program.h"

namespace {

using reflyze::sim::Link;

// A change of fibre at 4 km looks like a loss from one end and like a gain from the other.
Link TwoFibres() {
  Link link;
  link.rangeKm = 18.0;
  link.points = 9000;
  link.spacingM = 2.0;
  link.receiver.bandwidthMhz = 20.0;
  link.receiver.noiseDb = -28.0;
  link.launch = {0.2, -48.0};
  link.sections = {{4.0, 0.2, -81.0}, {5.0, 0.2, -82.0}, {3.0, 0.2, -82.0}};
  link.joints = {{0.1, {}}, {0.3, -52.0}};
  link.end = {0.0, -30.0};
  link.lossThresholdDb = 0.08;
  return link;
}

Link FromTheOtherEnd(Link link) {
  std::reverse(link.sections.begin(), link.sections.end());
  std::reverse(link.joints.begin(), link.joints.end());
  return link;
}

class TwoWayTest : public ProgramTest {
 protected:
  using Edit = std::function<void(TSorData&)>;

  std::string StoreLink(const std::string& name, const Link& link) const {
    return Store(name, Bytes(*reflyze::sim::Simulate(link, 5).record));
  }
  // The analysed trace of a link, changed by hand.
  std::string StoreAnalysed(const std::string& name, const Link& link, const Edit& edit) const {
    const std::string path = StoreLink(name, link);
    EXPECT_EQ(Run({"analyse", path, "-o", path}).status, 0);
    const auto record = Read(path);
    edit(*record);
    return Store(name, Bytes(*record));
  }
  static std::unique_ptr<TSorData> Read(const std::string& path) {
    auto record = std::make_unique<TSorData>();
    EXPECT_EQ(record->Read(path.c_str(), "rb"), sfOk);
    return record;
  }
  Result Merge(const std::string& a, const std::string& b, std::vector<std::string> more = {}) const {
    std::vector<std::string> arguments = {"merge", a, b, "-o", File("a-out.sor"), File("b-out.sor")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Run(arguments);
  }
};

class MergeTest : public TwoWayTest {};

TEST_F(MergeTest, MeanIsFreeOfTheChangeOfFibre) {
  const std::string a = StoreLink("a.sor", TwoFibres());
  const std::string b = StoreLink("b.sor", FromTheOtherEnd(TwoFibres()));
  const Result result = Merge(a, b, {"--format", "json"});
  ASSERT_EQ(result.status, 0) << result.err;
  const nlohmann::json json = Json(result);
  ASSERT_EQ(json["events"].size(), 4u) << result.out;
  const struct { double km, lossA, lossB, loss; } kJoints[] = {{4.0, 0.6, -0.4, 0.1}, {9.0, 0.3, 0.3, 0.3}};
  for (size_t i = 0; i < 2; ++i) {
    const nlohmann::json& event = json["events"][i + 1];
    EXPECT_NEAR(event["distance_km"].get<double>(), kJoints[i].km, 0.01);
    EXPECT_NEAR(event["loss_a_db"].get<double>(), kJoints[i].lossA, 0.03);
    EXPECT_NEAR(event["loss_b_db"].get<double>(), kJoints[i].lossB, 0.03);
    EXPECT_NEAR(event["loss_db"].get<double>(), kJoints[i].loss, 0.03);
    EXPECT_EQ(event["seen_from"], "both");
  }
  // Each direction knows the backscatter of its first fibre only, which is 1 dB stronger from A.
  EXPECT_NEAR(json["events"][2]["reflectance_a_db"].get<double>(), -51.0, 0.6);
  EXPECT_NEAR(json["events"][2]["reflectance_b_db"].get<double>(), -52.0, 0.6);
  EXPECT_TRUE(json["events"][0]["loss_db"].is_null() && json["events"][3]["loss_a_db"].is_null());
  // What is stored is what is printed; the second keeps its own losses.
  const auto storedA = Read(File("a-out.sor")), storedB = Read(File("b-out.sor"));
  ASSERT_EQ(storedA->KeyEvents->TNKE, 4);
  for (int i = 1; i < 3; ++i) {
    const nlohmann::json& event = json["events"][static_cast<size_t>(i)];
    const double kStepDb = 0.001;  // of a record
    EXPECT_NEAR(storedA->KeyEvents->EventAt(i).GetEL(), event["loss_db"].get<double>(), 0.501 * kStepDb);
    EXPECT_NEAR(storedB->KeyEvents->EventAt(3 - i).GetEL(), event["loss_b_db"].get<double>(),
                0.501 * kStepDb);
    // Two measurements, each with an error of its own.
    const double sdA = event["loss_a_sd_db"], sdB = event["loss_b_sd_db"];
    EXPECT_NEAR(event["loss_sd_db"].get<double>(), std::sqrt(sdA * sdA + sdB * sdB) / 2, 1e-5);
    EXPECT_NEAR(event["loss_db"].get<double>(),
                (event["loss_a_db"].get<double>() + event["loss_b_db"].get<double>()) / 2, 2e-6);
  }
}

// One direction has lost an event. Entries that belong to the other events stay with them.
TEST_F(MergeTest, EventOfOneDirectionReachesTheOtherWithAllBlocksInStep) {
  for (const char missing : {'a', 'b'}) {
    const auto forget = [&](char direction) {
      return [=](TSorData& record) {
        for (int i = 0; i < 4; ++i)
          record.KeyEvents->EventAt(i).ER = i == 2 ? record.KeyEvents->EventAt(i).ER : 0;
        if (direction == missing) record.KeyEvents->events->DelData(1), --record.KeyEvents->TNKE;
        record.RFTSParams->AddLevel();
        for (int i = 0; i < record.KeyEvents->TNKE; ++i) record.RFTSParams->OnKeyEventAdd(i);
        auto* landmark = new TSorBlockLinkParamLandmark;
        landmark->REN = record.KeyEvents->TNKE;
        record.LnkParams->InsertLandmark(landmark);
      };
    };
    const std::string a = StoreAnalysed("a.sor", TwoFibres(), forget('a'));
    const std::string b = StoreAnalysed("b.sor", FromTheOtherEnd(TwoFibres()), forget('b'));
    const nlohmann::json json = Json(Merge(a, b, {"--format", "json"}));
    ASSERT_EQ(json["events"].size(), 4u) << json;
    const nlohmann::json& found = json["events"][missing == 'a' ? 1 : 2];
    EXPECT_EQ(found["seen_from"], missing == 'a' ? "b" : "a");
    EXPECT_NEAR(found["loss_db"].get<double>(), missing == 'a' ? 0.1 : 0.3, 0.05);
    EXPECT_EQ(json["events"][missing == 'a' ? 2 : 1]["seen_from"], "both");
    for (const char* name : {"a-out.sor", "b-out.sor"}) {
      const auto stored = Read(File(name));
      ASSERT_EQ(stored->KeyEvents->TNKE, 4) << name;
      EXPECT_EQ(stored->RFTSParams->GetLevel(0)->GetTNTS(), 4) << name;
      EXPECT_EQ(stored->LnkParams->LandmarkAt(0).REN, 4) << name;
      for (int i = 0; i < 4; ++i) EXPECT_EQ(stored->KeyEvents->EventAt(i).EN, i + 1) << name;
      EXPECT_NEAR(stored->KeyEvents->EventAt(3).GetER(), -30.0, 1.1) << "none was stored; the trace tells it";
    }
  }
}

// An event that one direction can't measure has no mean. One that only its table lacks is measured all the
// same.
TEST_F(MergeTest, EventThatOneDirectionCannotMeasure) {
  const bool kBehindLaunch[] = {true, false};
  for (const bool behindLaunch : kBehindLaunch) {
    const std::string a = StoreAnalysed("a.sor", TwoFibres(), [&](TSorData& record) {
      TSorBlockKeyEvents& table = *record.KeyEvents;
      const auto owt = [&](double km) { return static_cast<int>(record.LenToOwt(km)); };
      if (behindLaunch) {  // the launch's dead zone reaches beyond the splice
        table.events->DelData(1), --table.TNKE;
        table.EventAt(0).ML2 = owt(4.5);
      } else {
        table.EventAt(2).EPT = table.EventAt(3).EPT - owt(0.008);
      }
    });
    const std::string b = StoreAnalysed("b.sor", FromTheOtherEnd(TwoFibres()), [](TSorData&) {});
    const nlohmann::json json = Json(Merge(a, b, {"--format", "json"}));
    ASSERT_EQ(json["events"].size(), behindLaunch ? 4u : 5u) << json;
    const nlohmann::json &alone = json["events"][behindLaunch ? 1 : 3], &end = json["events"].back();
    EXPECT_EQ(alone["seen_from"], behindLaunch ? "b" : "a");
    if (behindLaunch) {
      EXPECT_NEAR(alone["loss_db"].get<double>(), 0.1, 0.005) << alone;
    } else {
      EXPECT_TRUE(alone["loss_b_db"].is_null() && alone["loss_db"].is_null()) << alone;
    }
    EXPECT_EQ(end["seen_from"], "both");
    EXPECT_NEAR(end["distance_km"].get<double>(), 12.0, 0.01);
    const auto stored = Read(File("a-out.sor"));
    if (behindLaunch) {
      EXPECT_NEAR(stored->KeyEvents->EventAt(1).GetEL(), alone["loss_db"].get<double>(), 0.0011);
    }
  }
}

TEST_F(MergeTest, RefusesWhatIsNotOneFibreMeasuredAlike) {
  const std::string a = StoreLink("a.sor", TwoFibres());
  const struct {
    const char* what;
    std::function<void(Link&)> change;
  } kCases[] = {{"pulse of 200 ns", [](Link& link) { link.pulseNs = 200.0; }},
                {"points 3.0", [](Link& link) { link.spacingM = 3.0, link.points = 6000; }},
                {"ends at 11.0", [](Link& link) { link.sections[1].lengthKm = 4.0; }}};
  for (const auto& c : kCases) {
    Link other = FromTheOtherEnd(TwoFibres());
    c.change(other);
    const Result result = Merge(a, StoreLink("b.sor", other));
    ExpectOneLineError(result, 3, c.what);
    EXPECT_NE(result.err.find("b.sor: "), std::string::npos);
    EXPECT_NE(result.err.find(c.what), std::string::npos) << result.err;
    EXPECT_FALSE(std::filesystem::exists(File("a-out.sor"))) << c.what;
  }
  const std::string b = StoreLink("b.sor", FromTheOtherEnd(TwoFibres()));
  ExpectOneLineError(Run({"merge", a, a, "-o", File("x.sor"), File("x.sor")}), 2, "one output");
  ExpectOneLineError(Run({"merge", a, a, "-o", File("x.sor"), File("./x.sor")}), 2, "spelt differently");
  ExpectOneLineError(Run({"merge", a, a, "-o", File("x.sor")}), 2, "an output is missing");
  ExpectOneLineError(Run({"merge", a, b, "-o", File("x.sor"), File("no/x.sor")}), 4, "no folder");
}

// With thresholds the traces are analysed. So are those whose events bring no markers.
TEST_F(MergeTest, AnalysesWhereItHasTo) {
  const auto strip = [](TSorData& record) {
    record.KeyEvents->events->DelData(2), --record.KeyEvents->TNKE;
    for (int i = 0; i < 3; ++i) {
      TSorBlockKeyEvents1E& event = record.KeyEvents->EventAt(i);
      event.ML0 = event.ML1 = event.ML2 = event.ML3 = i * -858993460;
    }
  };
  const std::string a = StoreAnalysed("a.sor", TwoFibres(), strip);
  const std::string b = StoreAnalysed("b.sor", FromTheOtherEnd(TwoFibres()), [](TSorData&) {});
  const Result result = Merge(a, b, {"--format", "json"});
  EXPECT_NE(result.err.find("a.sor: warning"), std::string::npos) << result.err;
  EXPECT_EQ(Json(result)["events"].size(), 4u);
  const Result strict = Merge(a, b, {"--format", "json", "--lt", "5"});
  EXPECT_EQ(strict.err, "");
  EXPECT_EQ(Json(strict)["events"].size(), 3u) << "what reflects counts by the other threshold";
}

class QualityTest : public TwoWayTest {};

TEST_F(QualityTest, EventsLaunchAndRange) {
  const std::string trace = StoreAnalysed("a.sor", TwoFibres(), [](TSorData& record) {
    record.KeyEvents->EventAt(1).ER = 0;  // not measured
  });
  const Result result = Run({"quality", trace, "--format", "json"});
  ASSERT_EQ(result.status, 0) << result.err;
  const nlohmann::json json = Json(result);
  ASSERT_EQ(json["events"].size(), 4u);
  // The place of a reflection is known better than that of a splice, and that to a pulse.
  const double splice = json["events"][1]["trust_m"], reflection = json["events"][2]["trust_m"];
  EXPECT_TRUE(reflection > 0.0 && reflection < splice && splice < 10.0) << reflection << " " << splice;
  for (size_t i = 1; i < 3; ++i) {
    const nlohmann::json& event = json["events"][i];
    EXPECT_GE(event["trust_m"].get<double>(), event["distance_sd_m"].get<double>());
    EXPECT_TRUE(event["loss_sd_db"].get<double>() > 0.0 && event["probability"].get<double>() > 0.99)
        << event;
  }
  EXPECT_TRUE(json["events"][3]["loss_sd_db"].is_null());
  EXPECT_EQ(json["events"][1]["measurable"], "yes");
  EXPECT_EQ(json["events"][3]["measurable"], "ends");
  EXPECT_FALSE(json["events"][1].contains("two_pulse_loss_db"));
  EXPECT_NEAR(json["measurable_km"].get<double>(), 12.0, 0.01);
  EXPECT_EQ(json["all_measurable"], false);
  EXPECT_EQ(json["launch"]["state"], "measured");
  for (const auto& percent : {std::pair<const char*, bool>{"33", false}, {"34", true}}) {
    const nlohmann::json ended =
        Json(Run({"quality", trace, "--format", "json", "--last-percent", percent.first}));
    EXPECT_EQ(ended["end_in_last_percent"]["result"], percent.second);
  }
  for (const char* percent : {"101", "1.5", "-1"}) {
    ExpectOneLineError(Run({"quality", trace, "--last-percent", percent}), 2, percent);
  }
  ExpectOneLineError(Run({"quality", trace, "--long-pulse", File("none.sor")}), 3, "no long pulse");
}

TEST_F(QualityTest, LongPulseMeasuresTheLosses) {
  Link longer = TwoFibres();
  longer.pulseNs = 200.0;
  Link other = TwoFibres();
  other.wavelengthNm = 1310.0;
  const std::string trace = StoreLink("a.sor", TwoFibres()), second = StoreLink("long.sor", longer);
  const Result result = Run({"quality", trace, "--long-pulse", second, "--format", "json"});
  EXPECT_EQ(result.err, "");
  const nlohmann::json json = Json(result);
  EXPECT_NEAR(json["events"][1]["two_pulse_loss_db"].get<double>(), 0.6, 0.1);
  EXPECT_TRUE(json["events"][0]["two_pulse_loss_db"].is_null());
  const Result swapped = Run({"quality", second, "--long-pulse", trace});
  EXPECT_EQ(swapped.status, 0);
  EXPECT_NE(swapped.err.find("no longer than"), std::string::npos) << swapped.err;
  const Result mixed = Run({"quality", StoreLink("other.sor", other), "--long-pulse", second});
  EXPECT_NE(mixed.err.find("1310 nm"), std::string::npos) << mixed.err;
}

}  // namespace
