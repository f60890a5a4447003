// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorLinkParams.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "tests/sor/blockBytes.h"

namespace {

class SorLinkParams : public testing::Test {
 protected:
  TSorBlockLinkParamLandmark* Insert(int location, int expectedIndex) {
    auto* landmark = new TSorBlockLinkParamLandmark();
    landmark->LML = location;
    EXPECT_EQ(link_.InsertLandmark(landmark), expectedIndex);
    EXPECT_EQ(link_.GetLandmark(static_cast<short>(expectedIndex)), landmark);
    return landmark;
  }

  // A file of landmarks with these numbers.
  void ReadNumbers(const std::vector<int>& numbers) {
    blocktest::Layout file;
    file.Short(static_cast<long>(numbers.size()));
    for (int number : numbers) {
      file.Short(number).Raw("? ").Long(number * 10L).Short(1).Long(0).Long(0).Short(0).Long(0).Long(0);
      file.Raw("FT").Short(0).Text(" ");
    }
    EXPECT_EQ(blocktest::ReadFrom(link_, file.bytes(), 100).consumed, file.bytes().size());
  }

  std::vector<int> Locations() const {
    std::vector<int> locations;
    for (short i = 0; i < link_.GetTNL(); ++i) locations.push_back(link_.GetLandmark(i)->LML);
    return locations;
  }

  TSorBlockLinkParameters link_;
};

TEST_F(SorLinkParams, ListsALandmarkFieldByField) {
  TSorBlockLinkParamLandmark landmark;
  landmark.LML = 1234;
  landmark.REN = 7;
  EXPECT_EQ(blocktest::DumpOf(landmark),
            "LMN  = 1\nLMC  = '?'\nLML  = 1234\nREN  = 7\nLongitude= 0\nLatitude= 0\nFCI  = 0\nSMI  = 0\n"
            "SML  = 0\nUSML = 'FT'\nMFDL = 0\nCMT  = ' '\n");
}

TEST_F(SorLinkParams, LandmarksStandInOrderOfLocation) {
  EXPECT_TRUE(link_.IsEmpty());
  EXPECT_EQ(link_.GetLandmark(0), nullptr);
  TSorBlockLinkParamLandmark* far = Insert(300, 0);
  Insert(100, 0);
  Insert(200, 1);
  TSorBlockLinkParamLandmark* equal = Insert(200, 2);  // behind the one that was there
  EXPECT_EQ(equal->LMN, 4);
  EXPECT_EQ(Locations(), (std::vector<int>{100, 200, 200, 300}));

  EXPECT_EQ(link_.InsertLandmark(far), -1);
  far->LML = 50;  // moved, so that the search by location alone would pass it by
  EXPECT_EQ(link_.InsertLandmark(far), -1);
  EXPECT_EQ(link_.InsertLandmark(nullptr), -1);
  EXPECT_EQ(link_.ReinsertLandmark(3), 0);
  EXPECT_EQ(far->LMN, 1);
  EXPECT_EQ(Locations(), (std::vector<int>{50, 100, 200, 200}));
  EXPECT_EQ(link_.ReinsertLandmark(-1), -1);

  link_.DeleteLandmark(-1);
  EXPECT_EQ(link_.GetTNL(), 4);
  for (int left = 3; left >= 0; --left) {
    link_.DeleteLandmark(0);
    EXPECT_EQ(link_.GetTNL(), left);
  }
  link_.DeleteLandmark(0);
  EXPECT_TRUE(link_.IsEmpty());
  EXPECT_EQ(link_.ReinsertLandmark(0), -1);
}

TEST_F(SorLinkParams, NumbersOfAFileAreNotGivenAgain) {
  for (int i = 0; i < 3; ++i) Insert(10 * i, i);
  link_.DeleteLandmark(1);
  EXPECT_EQ(link_.GenerateUniqueLMN(), 2);  // never on file: free again

  ReadNumbers({1, 2, 3});
  link_.DeleteLandmark(1);
  EXPECT_EQ(link_.GenerateUniqueLMN(), 4);
  TSorBlockLinkParameters copy;
  copy.Assign(link_);
  copy.DeleteLandmark(0);
  EXPECT_EQ(copy.GenerateUniqueLMN(), 4);
  ReadNumbers({7});
  EXPECT_EQ(link_.GenerateUniqueLMN(), 1);
}

TEST_F(SorLinkParams, NumbersBeyondTheSignedRangeStayUnique) {
  std::vector<int> all(32767);
  for (int i = 0; i < 32767; ++i) all[static_cast<std::size_t>(i)] = i + 1;
  ReadNumbers(all);
  EXPECT_EQ(link_.GenerateUniqueLMN(), 32768);
  link_.DeleteLandmark(0);
  link_.DeleteLandmark(0);
  EXPECT_EQ(Insert(0, 0)->LMN, -32768);
  EXPECT_EQ(Insert(0, 1)->LMN, -32767);
  // All numbers of the file are used up, and the table holds all above.
  for (int i = 0; i < 32767; ++i) link_.LandmarkAt(i).LMN = static_cast<short>(i - 32768);
  EXPECT_EQ(link_.GenerateUniqueLMN(), 0);
}

TEST_F(SorLinkParams, EventNumbersAtTheirBounds) {
  ReadNumbers({1, 2, 3});
  const short kNumbers[] = {0, 32767, -9};
  for (int i = 0; i < 3; ++i) link_.LandmarkAt(i).REN = kNumbers[i];
  link_.OnKeyEventAdd(0);  // none, the largest, which has no next, and junk
  for (int i = 0; i < 3; ++i) EXPECT_EQ(link_.LandmarkAt(i).REN, kNumbers[i]);
  link_.OnKeyEventsClear();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(link_.LandmarkAt(i).REN, i == 2 ? -9 : 0);
}

// Landmarks follow their events through a long run of additions and deletions.
TEST_F(SorLinkParams, EventNumbersFollowTheEventTable) {
  std::mt19937 random(99);
  std::vector<int> events{0, 1, 2, 3, 4}, pointsAt;
  for (int i = 0; i < 5; ++i) {
    Insert(10 * i, i)->REN = static_cast<short>(i + 1);
    pointsAt.push_back(i);
  }
  int lost = 0, moved = 0;
  for (int next = 5; next < 200; ++next) {
    const std::size_t at = random() % (events.size() + 1);
    if (events.size() < 8 || random() % 2 == 0) {
      events.insert(events.begin() + static_cast<long>(at), next);
      link_.OnKeyEventAdd(static_cast<int>(at));
    } else if (at < events.size()) {
      events.erase(events.begin() + static_cast<long>(at));
      link_.OnKeyEventDel(static_cast<int>(at));
    }
    for (int i = 0; i < 5; ++i) {
      const auto found = std::find(events.begin(), events.end(), pointsAt[static_cast<std::size_t>(i)]);
      const long number = found == events.end() ? 0 : found - events.begin() + 1;
      lost += number == 0;
      moved += number > i + 1;
      ASSERT_EQ(link_.LandmarkAt(i).REN, number) << next;
    }
  }
  EXPECT_GT(lost, 0);
  EXPECT_GT(moved, 0);
}

}  // namespace
