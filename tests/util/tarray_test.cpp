// SPDX-License-Identifier: Apache-2.0
#include "util/tarray.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/assertions.h"

namespace {

// Counts how many of its kind live: an array that destroys too much or too little shows.
struct Element {
  explicit Element(int n) : number(n) { ++living; }
  Element(const Element&) = delete;
  Element& operator=(const Element&) = delete;
  ~Element() { --living; }
  int number;
  static int living;
};
int Element::living = 0;

class TOxArrayTest : public ::testing::Test {
 protected:
  using Array = TOxArray<Element, Element*>;

  void TearDown() override { EXPECT_EQ(Element::living, 0); }

  static void Fill(Array& array, int n) {
    for (int i = 0; i < n; ++i) array.AddData(new Element(i));
  }
  static std::vector<int> Numbers(const Array& array) {
    std::vector<int> numbers;
    for (int i = 0; i < array.GetSize(); ++i) {
      numbers.push_back(array.GetData(i) == nullptr ? -1 : array.GetData(i)->number);
    }
    return numbers;
  }
};

using List = std::vector<int>;

TEST_F(TOxArrayTest, GivesTheLastElementForIndicesPastTheEnd) {
  Array empty;
  EXPECT_EQ(empty.GetData(0), nullptr);
  Array array;
  Fill(array, 3);
  const struct { int i, number; } kCases[] = {{0, 0}, {2, 2}, {3, 2}, {5, 2}, {2147483647, 2}, {-1, 0}};
  for (const auto& c : kCases) EXPECT_EQ(array.GetData(c.i)->number, c.number) << c.i;
}

TEST_F(TOxArrayTest, ReplacesElementsItHas) {
  Array array(2);
  EXPECT_EQ(Numbers(array), (List{-1, -1}));
  array.SetData(new Element(1), 0);
  array.SetData(new Element(2), 7);  // the last
  array.SetData(new Element(3), 0);
  array.SetData(array.GetData(0), 0);  // itself: not destroyed
  EXPECT_EQ(Numbers(array), (List{3, 2}));
  EXPECT_EQ(Element::living, 2);

  Element past(4);
  array.SetData(&past, 2);
  Array empty;
  empty.SetData(&past, 0);
  EXPECT_EQ(Numbers(array), (List{3, 2}));
}

TEST_F(TOxArrayTest, TakesElementsOutAliveOrDestroyed) {
  Array array;
  Fill(array, 4);
  Element* alive = array.GetData(1);
  array.DelEntry(1);
  EXPECT_EQ(Numbers(array), (List{0, 2, 3}));
  EXPECT_EQ(Element::living, 4);
  delete alive;
  array.DelData(9);
  EXPECT_EQ(Numbers(array), (List{0, 2}));
  EXPECT_EQ(Element::living, 2);  // owning again after DelEntry
  array.DelData(0);
  array.DelData(0);
  array.DelData(0);
  array.DelEntry(0);
  EXPECT_EQ(array.GetSize(), 0);
}

TEST_F(TOxArrayTest, Resizes) {
  Array array;
  Fill(array, 3);
  array.SetSize(5);
  EXPECT_EQ(Numbers(array), (List{0, 1, 2, -1, -1}));
  array.SetSize(2);
  EXPECT_EQ(Numbers(array), (List{0, 1}));
  EXPECT_EQ(Element::living, 2);
  array.SetSize(-1);
  EXPECT_EQ(array.GetSize(), 0);
  EXPECT_EQ(Array(-3).GetSize(), 0);
  Fill(array, 2);
  array.Clear();
  EXPECT_EQ(Element::living, 0);
}

// Random edits beside a standard vector.
TEST_F(TOxArrayTest, EditsAsAVectorDoes) {
  std::mt19937 random(7);
  Array array;
  std::vector<int> twin;
  for (int round = 0; round < 3000; ++round) {
    const int size = static_cast<int>(twin.size());
    const int i = static_cast<int>(random() % 12) - 1;
    const int inside = std::max(0, std::min(i, size - 1));
    switch (random() % 4) {
      case 0:
        array.AddData(new Element(round));
        twin.push_back(round);
        break;
      case 1:
        array.InsData(new Element(round), i);
        twin.insert(twin.begin() + std::max(0, std::min(i, size)), round);
        break;
      default:
        array.DelData(i);
        if (size > 0) twin.erase(twin.begin() + inside);
    }
    ASSERT_EQ(Numbers(array), twin);
    ASSERT_EQ(Element::living, static_cast<int>(twin.size()));
  }
}

TEST(SafeArray, AssertsOnIndicesOutside) {
  safe_array<int, 3> array;
  array[2] = 5;
  EXPECT_EQ(array.ptr()[2], 5);
  EXPECT_EQ(array.size(), 3u);
  const auto& readOnly = array;
  for (unsigned int index : {3u, 4294967295u}) {
    std::string file;
    const char* const text = "( (index < size()) && (index >= 0) ) && \"Out of bounds access in safe array\"";
    EXPECT_EQ(reflyze::test::AssertionOf([&] { array[index] = 0; }, &file), text);
    EXPECT_EQ(reflyze::test::AssertionOf([&] { (void)readOnly[index]; }), text);
    EXPECT_EQ(file, "util/tarray.h");
  }
}

}  // namespace
