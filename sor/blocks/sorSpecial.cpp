// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorSpecial.h"

#include <algorithm>
#include <memory>

#include "sor/fields/sorDamp.h"
#include "sor/fields/sorFields.h"
#include "sor/stream/sorReadBytes.h"

TSorBlockSpecial::TSorBlockSpecial(int size)
    : Size(std::max(size, 0)), bytes_(static_cast<size_t>(std::max(size, 0))) {}

TSorBlockSpecial* TSorBlockSpecial::NewUnread(int size) {
  auto* block = new TSorBlockSpecial();
  block->Size = std::max(size, 0);
  return block;
}

void TSorBlockSpecial::Assign(const TSorBlock& other) {
  if (const auto* same = dynamic_cast<const TSorBlockSpecial*>(&other)) Assign(*same);
}

void TSorBlockSpecial::Read(TSorFile* file) {
  if (file == nullptr) return;
  bytes_ = reflyze::ReadBytes(*file, Size);
  Size = static_cast<int>(bytes_.size());
}

void TSorBlockSpecial::Write(TSorFile* file) {
  const size_t size = std::min(bytes_.size(), static_cast<size_t>(std::max(Size, 0)));
  if (size > 0) file->WriteBuf(bytes_.data(), size);
}

void TSorBlockSpecial::Damp(FILE* out) const {
  reflyze::DumpHeading(out, GetBlockID(btSpecial));
  reflyze::FieldDumper dumper(out);
  dumper.Text("ID", MapID);
  dumper.Int("Size", Size);
  dumper.Bytes("Data", bytes_.data(), static_cast<long>(bytes_.size()));
}
