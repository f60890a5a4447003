// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "reflyze/trace.h"

namespace reflyze {

// A field of a record, and what is to stand in it, as people write both: {"fibre", "007"}.
struct FieldEdit {
  std::string field;  // see EditFields
  std::string value;  // UTF-8; a number in the unit of the field
};

// A field that can be edited.
struct EditField {
  const char* name;     // such as "fibre", or "event.N.at" for the event of that number
  const char* meaning;  // with its unit
};
// All of them.
REFLYZE_API const std::vector<EditField>& EditFields();

// What an edit has changed, in words: a field, or what follows from it.
struct FieldChange {
  std::string field;          // as of FieldEdit, or of what follows, such as "event 2 section"
  std::string before, after;  // as they are shown
};

// A file with changed fields.
struct EditedFile {
  std::string file;                  // of the trace, as it was given
  std::vector<FieldChange> changes;  // none where all was as asked for
  std::vector<Warning> warnings;     // what a user should know
  std::string bytes;                 // the whole file
};

// Changes fields of a file and nothing else: every byte that is not of these fields, or follows from them,
// stays as it is, blocks that nobody here knows, revisions and order too. What follows:
//
// - from the index of refraction: lengths, since places are times; the attenuation of sections, so that
//   they lose what they lost.
// - from the backscatter coefficient: reflectances and return loss, which are measured against it.
// - from the user offset: the times of events and landmarks, so that they stay on their places.
// - from the wavelength: the nominal one, and the actual one in the unit that the file has it in.
// - from an event that is added, moved or deleted: numbers, and the section behind it. It is measured on the
//   trace, and its code says that a person has set it: A added, M moved, D a moved end (SR-4731).
// - the checksum, by the rule by which it was right; where it was 0 it stays so.
//
// Events are told by the number that the file gives them, also where several are edited at once. Throws Error
// kUsage for a field that is not known or that the record has no room for, and for a value that it can't
// hold; kUnreadable where the block of a field is cut off or not in its place.
REFLYZE_API EditedFile Edit(const Trace& trace, const std::vector<FieldEdit>& edits);

// A value with what stands in braces filled in: {n} the number of the trace, {n:03} with that many digits,
// {name} the name of the file without its folder and ending, {fibre} and other texts of the record as they
// were. {{ and }} stand for single braces. Throws Error kUsage for what can't be filled in.
REFLYZE_API std::string FillPattern(const std::string& pattern, const Trace& trace, long n);

// Edits of one file, as a table has them.
struct FileEdits {
  std::string file;              // as the table names it
  int line = 0;                  // of the table, from 1
  std::vector<FieldEdit> edits;  // none for an empty cell
};

// A table of edits is some pages of text.
constexpr std::size_t kLargestEditTable = 1u << 24;  // bytes

// A table of edits as CSV (RFC 4180): its first line names the columns, "file" and fields; an empty cell
// changes nothing. Separated by commas or semicolons. Throws Error kUnreadable, which names the line, for
// columns that are not known, lines with more or fewer cells, and a file that is named twice. `name` stands
// for the table.
REFLYZE_API std::vector<FileEdits> EditsFromCsv(const std::string& name, const std::string& text);

}  // namespace reflyze
