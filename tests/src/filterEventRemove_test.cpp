// SPDX-License-Identifier: Apache-2.0

// Echoes among the events of the filter: events made by hand on a trace that holds the light they stand for.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/src/filteredTrace.h"

namespace {

using support::BuildTrace;
using support::FilterSpec;
using support::TraceSpec;

struct Shape {
  long at;
  double heightDb;  // of the light above the backscatter
  int grade;
  char type = 'r';
};

// Fibre at a metre a point, 30 dB above the noise at its start, with these reflections; the tolerance of a
// place is 4 points, and one more for every 8 km.
class EventRemoval {
 public:
  explicit EventRemoval(const std::vector<Shape>& shapes, int innerOwt = 0, int offsetOwt = 0) {
    TraceSpec spec = FilterSpec(3.0);
    spec.offsetOwt = offsetOwt;
    spec.peaks.clear();
    for (const Shape& shape : shapes) spec.Peak(static_cast<double>(shape.at), shape.heightDb);
    sor = BuildTrace(spec);
    sor->QRTParams->modes[0].BWU1 = 490;  // dB per km
    sor->QRTParams->IntFiber = innerOwt;
    filter = std::make_unique<TSorFilter>(sor.get());
    filter->SetLinfAvg(spec.points, 16);
    for (const Shape& shape : shapes) {
      TFEvent event;
      event.begin = static_cast<int>(shape.at);
      event.peak = static_cast<int>(shape.at + 5);
      event.rise = static_cast<int>(shape.at + 11);
      event.end = static_cast<int>(shape.at + 30);
      event.gradeUp = shape.grade;
      event.width = 11;
      event.type = shape.type;
      events.push_back(event);
    }
  }

  // Where the events that stay begin.
  std::vector<long> Kept() {
    const long count =
        filter->AutoFilterEventRemove(sor.get(), static_cast<long>(events.size()), events.data(), skip);
    std::vector<long> kept;
    for (long i = 0; i < count; ++i) kept.push_back(events[static_cast<size_t>(i)].begin);
    return kept;
  }

  std::unique_ptr<TSorData> sor;
  std::unique_ptr<TSorFilter> filter;
  std::vector<TFEvent> events;
  long skip = -1;
};

using Places = std::vector<long>;

TEST(EventRemoval, CutsOffEchoesBehindTheFibre) {
  const struct {
    const char* name;
    std::vector<Shape> shapes;
    Places kept;
  } kCases[] = {
      {"no echo", {{0, 8, 8}, {5000, 6, 9}, {12000, 8, 10}}, {0, 5000, 12000}},
      {"at twice the distance", {{0, 8, 8}, {6000, 20, 14}, {12000, 6, 8}}, {0, 6000}},
      {"at twice the distance, too strong for an echo",
       {{0, 8, 8}, {6000, 20, 14}, {12000, 14, 13}},
       {0, 6000, 12000}},
      {"at twice the distance, but graded above its source",
       {{0, 8, 8}, {6000, 20, 7}, {12000, 6, 8}},
       {0, 6000, 12000}},
      {"not quite at twice the distance", {{0, 8, 8}, {6000, 20, 14}, {12030, 6, 8}}, {0, 6000, 12030}},
      {"at twice the distance, two more in between",
       {{0, 8, 8}, {6000, 20, 14}, {7500, 1, 5}, {9500, 1, 5}, {12000, 6, 8}},
       {0, 6000}},
      {"second and third echo", {{0, 8, 8}, {4000, 12, 12}, {8000, 1, 8}, {12000, 0.5, 4}}, {0, 4000}},
      {"a third of the way, but the end is strong",
       {{0, 8, 8}, {4000, 6, 9}, {8000, 3, 8}, {12000, 12, 12}},
       {0, 4000, 8000, 12000}},
      {"as far behind a strong one as that behind an earlier",
       {{0, 8, 8}, {3000, 3, 7}, {7000, 20, 14}, {11000, 6, 8}},
       {0, 3000, 7000}},
      {"as far behind a strong one as an earlier behind the start",
       {{0, 8, 8}, {3000, 3, 7}, {7000, 20, 14}, {10000, 6, 8}},
       {0, 3000, 7000}},
      {"right behind a strong one", {{0, 8, 8}, {6000, 12, 12}, {6012, 2, 6}}, {0, 6000}},
      {"right behind a strong one, doubled", {{0, 8, 8}, {6000, 12, 12}, {6012, 2, 6, 'V'}}, {0, 6000, 6012}},
      {"weak, and further behind", {{0, 8, 8}, {6000, 12, 12}, {6060, 2, 6}}, {0, 6000, 6060}},
  };
  for (const auto& c : kCases) {
    EventRemoval removal(c.shapes);
    EXPECT_EQ(removal.Kept(), c.kept) << c.name;
    EXPECT_EQ(removal.skip, 0) << c.name;
  }
}

// With a fibre inside the instrument light also goes to and fro between two reflections on the way.
TEST(EventRemoval, TakesOutSumsOfTwoDistances) {
  const std::vector<Shape> shapes = {{0, 8, 8}, {3000, 10, 10}, {7000, 20, 14}, {10000, 6, 4}, {15500, 8, 9}};
  EventRemoval with(shapes, 500);
  EXPECT_EQ(with.Kept(), (Places{0, 3000, 7000, 15500}));
  EXPECT_EQ(with.events[2].end, 10030);  // the stronger source takes its end
  EventRemoval without(shapes);
  EXPECT_EQ(without.Kept(), (Places{0, 3000, 7000, 10000, 15500}));
}

// The fibre starts at point 500; the connectors of the instrument in front of it left a tail or did not.
TEST(EventRemoval, SkipsWhatStandsInFrontOfTheFibre) {
  const struct {
    const char* name;
    std::vector<Shape> shapes;
    int tail;
    long skip;
  } kCases[] = {
      {"no tail", {{470, 8, 8}, {503, 3, 7}, {9000, 8, 9}}, 0, 0},
      {"the fibre's own reflection follows", {{470, 8, 8}, {503, 3, 7}, {9000, 8, 9}}, 50, 1},
      {"nothing follows near the start", {{470, 8, 8}, {600, 3, 7}, {9000, 8, 9}}, 50, 0},
      {"the first reaches into the fibre", {{495, 8, 8}, {503, 3, 7}, {9000, 8, 9}}, 50, 0},
      {"two in front", {{450, 8, 8}, {480, 3, 7}, {503, 3, 7}, {9000, 8, 9}}, 50, 2},
  };
  for (const auto& c : kCases) {
    EventRemoval removal(c.shapes, 0, -25000);
    removal.events[0].tail = c.tail;
    EXPECT_EQ(removal.Kept().size(), c.shapes.size()) << c.name;
    EXPECT_EQ(removal.skip, c.skip) << c.name;
  }
}

// --- The report ---

// So many events in a row that are no echoes of each other, every third of them weak. Nothing reflects where
// they stand.
std::vector<TFEvent> Row(long count) {
  std::vector<TFEvent> events;
  for (long i = 0; i < count; ++i) {
    TFEvent event;
    event.begin = event.peak = static_cast<int>(100 + 120 * i);
    event.rise = event.begin + 10;
    event.end = event.begin + 30;
    event.gradeUp = i % 3 == 1 ? 1 : 0;
    event.gradeDown = i % 3 == 1 ? 0 : -5;
    events.push_back(event);
  }
  return events;
}

TEST(EventReport, LeavesOutTheWeakWhereRoomIsShort) {
  const struct {
    long count, reported;
    bool weakStay;
  } kCases[] = {{0, 0, true},     {2, 2, true},     {99, 99, true},
                {100, 100, true}, {120, 80, false}, {160, 100, false}};
  for (const auto& c : kCases) {
    EventRemoval removal({});
    std::vector<TFEvent> work = Row(c.count), out(100);
    long count = c.count;
    const long total =
        removal.filter->AutoFilterEventRemove(removal.sor.get(), count, work.data(), out.data());
    EXPECT_EQ(total, c.count);
    ASSERT_EQ(count, c.reported) << c.count;
    long weak = 0;
    for (long i = 0; i < count; ++i) {
      const TFEvent& event = out[static_cast<size_t>(i)];
      weak += event.Am() <= 1;
      EXPECT_EQ((event.begin + 1 - 100) % 120, 0);  // one in front of where the scan has it
      EXPECT_EQ((event.peak - 100) % 120, 0);
      EXPECT_GT(event.begin, i == 0 ? 0 : out[static_cast<size_t>(i) - 1].begin);
    }
    EXPECT_EQ(weak > 0, c.weakStay && c.count > 1) << c.count;
  }
}

// Where the light says that the fibre starts at the second event, that is no event of its own.
TEST(EventReport, LeavesOutASecondStart) {
  const struct {
    long firstBegin;
    std::vector<int> begins;
  } kCases[] = {{0, {99, 219, 339}}, {110, {99, 219, 339}}, {215, {99, 339}}, {335, {99, 339}}};
  for (const auto& c : kCases) {
    EventRemoval removal({});
    std::vector<TFEvent> work = Row(3), out(100);
    removal.filter->result.firstBegin = c.firstBegin;
    long count = 3;
    removal.filter->AutoFilterEventRemove(removal.sor.get(), count, work.data(), out.data());
    std::vector<int> begins;
    for (long i = 0; i < count; ++i) begins.push_back(out[static_cast<size_t>(i)].begin);
    EXPECT_EQ(begins, c.begins) << c.firstBegin;
  }
}

// Hosts may ask for the count alone, and without a record for nothing.
TEST(EventReport, LivesWithoutRoomAndRecord) {
  EventRemoval removal({});
  std::vector<TFEvent> work = Row(5);
  long count = 5;
  EXPECT_EQ(removal.filter->AutoFilterEventRemove(nullptr, count, work.data(), nullptr), 5);
  EXPECT_EQ(count, 0);
  TSorFilter unbound(nullptr);
  long skip = -1;
  EXPECT_EQ(unbound.AutoFilterEventRemove(nullptr, 5, work.data(), skip), 5);
  EXPECT_EQ(skip, 0);
}

}  // namespace
