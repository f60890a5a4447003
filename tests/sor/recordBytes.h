// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sor/sorData.h"
#include "tests/sor/blockBytes.h"

// Records written out byte by byte, so that a test can build those that no writer makes.
namespace recordtest {

using blocktest::Bytes;
using blocktest::Layout;

class RecordLayout {
 public:
  explicit RecordLayout(int revision = 200) : revision_(revision) {}

  // A block: its ID where the revision has one, then the body. The map gives its true size, or another one on
  // request.
  RecordLayout& Block(const std::string& id, int revision, const Bytes& body) {
    const Bytes bytes = (revision >= 200 ? Layout().Text(id).bytes() : Bytes()) + body;
    return Block(id, revision, body, static_cast<long>(bytes.size()));
  }
  RecordLayout& Block(const std::string& id, int revision, const Bytes& body, long sizeInMap) {
    lines_.Text(id).Short(revision).Long(sizeInMap);
    blocks_ += (revision >= 200 ? Layout().Text(id).bytes() : Bytes()) + body;
    ++count_;
    return *this;
  }
  // Added to the true size of the map, and to the true number of blocks.
  RecordLayout& MapSizeOff(long bytes) {
    sizeOff_ = bytes;
    return *this;
  }
  RecordLayout& CountOff(int blocks) {
    countOff_ = blocks;
    return *this;
  }

  Bytes MapBytes() const {
    const Bytes id = revision_ >= 200 ? Layout().Text("Map").bytes() : Bytes();
    const long size = static_cast<long>(id.size() + 8 + lines_.bytes().size());
    return Layout().Raw(id).Short(revision_).Long(size + sizeOff_).Short(count_ + 1 + countOff_).bytes() +
           lines_.bytes();
  }
  Bytes bytes() const { return MapBytes() + blocks_; }

 private:
  int revision_;
  Layout lines_;
  Bytes blocks_;
  int count_ = 0;
  long sizeOff_ = 0;
  int countOff_ = 0;
};

inline Bytes PointsBody(const std::vector<int>& samples, int scaleFactor = 1000) {
  Layout body;
  body.Long(static_cast<long>(samples.size())).Short(1);
  body.Long(static_cast<long>(samples.size())).Short(scaleFactor);
  for (int sample : samples) body.Short(sample);
  return body.bytes();
}

// Embedded records, each of its own bytes: what goes into the body of "EmbData".
inline Bytes EmbeddedBody(const std::vector<Bytes>& records) {
  Layout body;
  body.Short(static_cast<long>(records.size()));
  for (const Bytes& record : records) body.Raw(record);
  return body.bytes();
}
inline Bytes Embedded(const std::string& description, long size, const Bytes& data) {
  return Layout().Text("id").Text("").Text(description).Long(size).Raw(data).bytes();
}

inline int ReadInto(TSorData& record, const Bytes& bytes) {
  TSorFile file(bytes.data(), bytes.size());
  record.Read(&file);
  return file.state;
}

inline Bytes BytesOf(TSorData& record) {
  TSorFile file(nullptr, "mw");
  record.Write(&file);
  EXPECT_EQ(file.state, sfOk);
  return Bytes(static_cast<const TSorFile&>(file).GetData(), file.GetDataSize());
}

}  // namespace recordtest
