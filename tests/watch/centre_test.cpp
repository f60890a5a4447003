// SPDX-License-Identifier: Apache-2.0
// The store, and a centre from a folder of files to alarms, with what can come between.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "reflyze/files.h"
#include "reflyze/simulate.h"
#include "reflyze/watch.h"
#include "watch/desk/Clock.h"
#include "watch/store/Alarms.h"
#include "watch/store/Fibres.h"
#include "watch/store/Migrations.h"
#include "watch/store/Thinning.h"
#include "watch/store/Traces.h"

namespace reflyze::watch {
namespace {

namespace fs = std::filesystem;

class CentreTest : public ::testing::Test {
 protected:
  CentreTest() : folder_(fs::temp_directory_path() / ("reflyze-watch-" + std::to_string(getpid()))) {
    fs::remove_all(folder_);
    fs::create_directories(folder_ / "spool");
  }
  ~CentreTest() override { fs::remove_all(folder_); }
  CentreTest(const CentreTest&) = delete;
  CentreTest& operator=(const CentreTest&) = delete;

  std::string Path(const std::string& name) const { return (folder_ / name).string(); }
  CentreOptions Options() const {
    CentreOptions options;
    options.store = Path("w.db");
    options.spool = Path("spool");
    options.port = -1;
    options.learn = true;
    options.jobs = 2;
    return options;
  }
  static std::string Example(const std::string& name) {
    const std::vector<char> bytes = ReadFile(std::string(REFLYZE_SOURCE_DIR) + "/examples/" + name);
    return {bytes.begin(), bytes.end()};
  }
  // A trace of the described link; the seed makes the noise, so that no two are the same.
  static std::string Simulated(const std::string& link, unsigned seed, int rangeKm = 55) {
    const std::vector<char> bytes =
        ReadFile(std::string(REFLYZE_SOURCE_DIR) + "/examples/links/" + link + ".json");
    std::string text(bytes.begin(), bytes.end());
    const std::string range = "\"range_km\": ";
    text.replace(text.find(range), range.size() + 2, range + std::to_string(rangeKm));
    return Simulate(text, seed).trace.Bytes();
  }
  // As programs write that mean it well: beside, then under its name.
  void Drop(const std::string& fibre, const std::string& name, const std::string& bytes) const {
    fs::create_directories(folder_ / "spool" / fibre);
    SaveTogether({{Path("spool/" + fibre + "/" + name), bytes}});
  }
  static bool Within(int seconds, const std::function<bool()>& what) {
    for (int i = 0; i < seconds * 50; ++i) {
      if (what()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
  }
  long Count(const std::string& query) const {
    Store store(Path("w.db"));
    return store.Read([&](soci::session& session) {
      long long count = 0;
      session << query, soci::into(count);
      return static_cast<long>(count);
    });
  }

  fs::path folder_;
};

TEST_F(CentreTest, TakesWhatLiesInItsFolderAndTellsABreak) {
  CentreOptions options = Options();
  std::ofstream(Path("channels.ini"))
      << "[desk]\nkind = command\nrun = /usr/bin/tee \"" + Path("told") + "\"\n";
  options.channels = Path("channels.ini");
  options.address = "javascript:alert(1)";
  EXPECT_THROW(OpenCentre(options), Error);
  options.address = "https://fibres.example/";
  const std::unique_ptr<Centre> centre = OpenCentre(options);
  centre->Start();
  Drop("F1", "1.sor", Example("baseline-40km.sor"));
  ASSERT_TRUE(Within(20, [&] { return Count("SELECT COUNT(*) FROM comparisons") == 1; }));
  Drop("F1", "2.sor", Simulated("broken-40km", 2));
  Drop("F1", "3.sor", Simulated("broken-40km", 3));
  Drop("F1", "3again.sor", Simulated("broken-40km", 3));
  Drop("F1", ".half.sor", Simulated("broken-40km", 4).substr(0, 900));
  Drop("F1", "half.sor.part", "not yet");
  Drop("F1", "cut.sor", Simulated("broken-40km", 5).substr(0, 30));
  Drop("..", "F1.sor", "a file that is in no fibre's folder");
  ASSERT_TRUE(Within(20, [&] {
    return Count("SELECT COUNT(*) FROM comparisons") == 3 &&
           fs::exists(Path("spool/.refused/F1__cut.sor.txt"));
  }));
  EXPECT_TRUE(Within(20, [&] {
    const std::vector<char> told = fs::exists(Path("told")) ? ReadFile(Path("told")) : std::vector<char>();
    return std::string(told.begin(), told.end()).find("\"https://fibres.example/#fibre=F1\"") !=
           std::string::npos;
  })) << "the message leads to its fibre";
  centre->Stop();
  Store store(Path("w.db"));
  store.Read([&](soci::session& session) {
    const std::vector<Alarm> alarms = Alarms(session, AlarmQuery());
    EXPECT_EQ(alarms.size(), 1u);
    const Alarm& alarm = alarms.at(0);
    EXPECT_EQ(alarm.kind, AlarmKind::kBroken);
    EXPECT_EQ(alarm.severity, Severity::kCritical);
    EXPECT_NEAR(alarm.km, 27.5, 0.01);
    EXPECT_GT(alarm.sdKm, 0.0);
    EXPECT_LT(alarm.sdKm, 0.01);
    // Every byte is as it came.
    EXPECT_EQ(TraceBytes(session, store.Kind(), TracesOf(session, 1, Now() + 1, 9).back().id),
              Example("baseline-40km.sor"));
    return 0;
  });
  EXPECT_TRUE(fs::exists(Path("spool/F1/.half.sor")));
  EXPECT_TRUE(fs::exists(Path("spool/F1/half.sor.part")));
  EXPECT_FALSE(fs::exists(Path("spool/F1/3again.sor")));
}

TEST_F(CentreTest, MovesNoAlarmByATraceThatComesLate) {
  CentreOptions options = Options();
  {
    const std::unique_ptr<Centre> centre = OpenCentre(options);
    centre->Start();
    Drop("F1", "1.sor", Example("baseline-40km.sor"));
    ASSERT_TRUE(Within(20, [&] { return Count("SELECT COUNT(*) FROM comparisons") == 1; }));
  }
  {  // the fibre has been seen since, by clocks that were right
    Store store(Path("w.db"));
    store.Write(
        [](soci::session& session) { session << "UPDATE fibres SET last_taken_at = last_taken_at + 5000"; });
  }
  const std::unique_ptr<Centre> centre = OpenCentre(options);
  centre->Start();
  Drop("F1", "2.sor", Simulated("broken-40km", 2));
  ASSERT_TRUE(Within(20, [&] { return Count("SELECT COUNT(*) FROM comparisons WHERE late = 1") == 1; }));
  EXPECT_EQ(Count("SELECT COUNT(*) FROM alarms"), 0);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM fibres WHERE bad_since = last_received_at"), 1)
      << "nothing watches a fibre whose traces are all late";
}

// An instrument whose range was changed sees nothing of the last kilometres: the fibre is not known to be
// well.
TEST_F(CentreTest, KnowsNothingBehindTheRangeOfATrace) {
  const std::unique_ptr<Centre> centre = OpenCentre(Options());
  centre->Start();
  Drop("F1", "1.sor", Example("baseline-40km.sor"));
  ASSERT_TRUE(Within(20, [&] { return Count("SELECT COUNT(*) FROM comparisons") == 1; }));
  Drop("F1", "2.sor", Simulated("baseline-40km", 2, 35));
  const std::string ends = "SELECT COUNT(*) FROM traces WHERE problem LIKE 'its range ends at 3%'";
  ASSERT_TRUE(Within(20, [&] { return Count(ends) == 1; }));
  EXPECT_EQ(Count("SELECT COUNT(*) FROM fibres WHERE bad_since = last_received_at"), 1);
  Drop("F1", "3.sor", Simulated("baseline-40km", 3));
  ASSERT_TRUE(Within(20, [&] { return Count("SELECT COUNT(*) FROM comparisons") == 2; }));
  EXPECT_EQ(Count("SELECT COUNT(*) FROM fibres WHERE bad_since = 0"), 1);
  Drop("F1", "4.sor", Simulated("broken-40km", 4, 35));  // but what it shows counts
  EXPECT_TRUE(Within(20, [&] { return Count("SELECT COUNT(*) FROM alarms WHERE kind = 'broken'") == 1; }));
}

TEST_F(CentreTest, IsAloneWithItsFile) {
  const std::unique_ptr<Centre> centre = OpenCentre(Options());
  EXPECT_THROW(OpenCentre(Options()), Error);
}

TEST_F(CentreTest, RefusesAStoreOfANewerVersionAndOfSomethingElse) {
  { Store store(Path("w.db")); }
  {
    soci::session session("sqlite3", "dbname=" + Path("w.db"));
    session << "INSERT INTO reflyze_schema VALUES (999)";
  }
  EXPECT_THROW(OpenCentre(Options()), Error);
  EXPECT_EQ(CheckCentre(Options()).size(), 1u);
  {
    soci::session session("sqlite3", "dbname=" + Path("other.db"));
    session << "CREATE TABLE fibres (x INTEGER)";
  }
  CentreOptions other = Options();
  other.store = Path("other.db");
  EXPECT_THROW(OpenCentre(other), Error);
  std::ofstream(Path("text.db")) << "this is a text and no database, however long it goes on about it";
  other.store = Path("text.db");
  EXPECT_THROW(OpenCentre(other), Error);
}

TEST_F(CentreTest, RefusesStoresWithoutTellingTheirPasswords) {
  for (const char* store :
       {"postgresql://u:hush@h/db?host=/none", "postgres://u:hush@/x?host=/none", "postgresql://u:pa@hush@h",
        "postgresql://u:pa/hush@h", "postgresql://u:pa?hush@h", "postgresql://u:9%hush@h",
        "postgresql://h?password=pa@hush", "postgresql://u:hush@[::1/db", "postgresql://u:hush%00@h/db",
        "postgresql:///db?password=pa&hush", "other://u:hush@h/db", "host=h password=hush"}) {
    CentreOptions options = Options();
    options.store = store;
    try {
      OpenCentre(options);
      FAIL() << store;
    } catch (const Error& error) {
      EXPECT_EQ(std::string(error.what()).find("hush"), std::string::npos) << error.what();
    }
    const std::vector<std::string> wrong = CheckCentre(options);
    ASSERT_EQ(wrong.size(), 1u) << store;
    EXPECT_EQ(wrong[0].find("hush"), std::string::npos) << wrong[0];
  }
}

TEST_F(CentreTest, FailedWriteTakesNobodyAlong) {
  Store store(Path("w.db"));
  Fibre fibre;
  fibre.name = "F1";
  store.Write([&](soci::session& session) { PutFibre(session, fibre); });
  std::vector<std::thread> threads;
  std::atomic<int> failed{0};
  for (int i = 0; i < 16; ++i) {
    threads.emplace_back([&, i] {
      Fibre one;
      one.name = "N" + std::to_string(i);
      try {
        store.Write([&](soci::session& session) {
          PutFibre(session, one);
          if (i % 2 == 1) throw Error(ErrorKind::kUsage, "", "no");
        });
      } catch (const Error&) {
        ++failed;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failed, 8);
  EXPECT_EQ(store.Read([](soci::session& session) { return Fibres(session).size(); }), 9u);
}

// A claim is one centre's until that centre leaves or its lease ends.
TEST_F(CentreTest, ThinsOutWhatIsOldAndShowedNoChange) {
  constexpr Millis kDay = 86400000, kBegin = 20000 * kDay;
  Store store(Path("w.db"));
  const auto add = [&](Millis takenAt, const char* result) {
    store.Write([&](soci::session& session) {
      TraceRow row;
      row.fibre = 1;
      row.hash = std::to_string(takenAt);
      row.takenAt = takenAt;
      const Id id = PutTrace(session, store.Kind(), row, "{}", "bytes", "one").id;
      if (result != nullptr)
        session << "INSERT INTO comparisons (trace, fibre, baseline, taken_at, result, changed, late, end_km,"
                   " sentences, events) VALUES (:id, 1, 1, :at, 0, " +
                       std::string(result) + ", 0, 40, '[]', '[]')",
            soci::use(id), soci::use(takenAt);
    });
  };
  store.Write([](soci::session& session) {
    Fibre fibre;
    fibre.name = "F1";
    PutFibre(session, fibre);
  });
  for (int day = 0; day < 10; ++day) {
    for (int hour : {1, 9, 17})
      add(kBegin + day * kDay + hour * 3600000LL,
          day == 4 && hour == 9 ? "1" : (day == 5 && hour == 17 ? nullptr : "0"));
  }
  const auto thin = [&] {
    bool more = true;
    for (int turns = 0; more && turns < 9; ++turns)
      store.Write([&](soci::session& session) { more = ThinOut(session, kBegin + 8 * kDay + kDay / 2); });
    EXPECT_FALSE(more);
    return Count("SELECT COUNT(*) FROM trace_bytes");
  };
  // The first of eight days, a change, one that could not be compared, and two days that are young enough.
  EXPECT_EQ(thin(), 8 + 1 + 1 + 2 * 3);
  add(kBegin + 2 * kDay + 5 * 3600000LL, "0");  // comes late, and nothing else is known of it
  EXPECT_EQ(thin(), 17);
}

TEST_F(CentreTest, WorkOfADeadCentreIsAnybodys) {
  Store store(Path("w.db"));
  store.Write([&](soci::session& session) {
    Fibre fibre;
    fibre.name = "F1";
    const Id id = PutFibre(session, fibre);
    session << "UPDATE fibres SET waiting_since = 5, baseline = 1, received_by = 'one' WHERE id = :id",
        soci::use(id);
    const Dialect kind = store.Kind();
    StayAlive(session, kind, "one", 1000);
    EXPECT_TRUE(ClaimFibres(session, kind, "two", 1000, 9, {}, Whose::kOwn).empty()) << "it came to another";
    EXPECT_EQ(ClaimFibres(session, kind, "one", 1000, 9, {}, Whose::kOwn), std::vector<Id>{id});
    EXPECT_EQ(ClaimFibres(session, kind, "one", 1000, 9), std::vector<Id>{id});
    EXPECT_TRUE(ClaimFibres(session, kind, "two", 2000, 9).empty());
    EXPECT_TRUE(ClaimFibres(session, kind, "one", 2000, 9, {id}).empty());
    EXPECT_EQ(ClaimFibres(session, kind, "one", 2000, 9), std::vector<Id>{id})
        << "whose end it never heard of";
    EXPECT_EQ(ClaimFibres(session, kind, "two", 1000 + kLeaseMillis, 9), std::vector<Id>{id});
    EXPECT_FALSE(Holds(session, kind, id, "one"));
    EXPECT_TRUE(Holds(session, kind, id, "two"));
  });
}

}  // namespace
}  // namespace reflyze::watch
