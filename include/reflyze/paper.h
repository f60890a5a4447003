// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "reflyze/files.h"
#include "reflyze/limits.h"
#include "reflyze/picture.h"
#include "reflyze/span.h"

// Reports for people who have to sign them. These functions are in a library of their own, libreflyze-paper,
// so that a program which only measures needs no libraries for drawing.

namespace reflyze {

// The sheets that printers have.
enum class PaperSize {
  kA4,      // 210 by 297 mm
  kLetter,  // 8.5 by 11 inches
};

// What a report looks like, and by what it judges.
struct PaperOptions {
  std::string language = "en";      // of the words: see PaperLanguages
  PaperSize size = PaperSize::kA4;  // of a page
  std::string title;                // on top of the first page; empty for the usual one
  std::string logo;                 // bytes of a PNG picture; empty for none
  long long dateUtc = 0;            // day of the report, seconds since 1970
  Reels reels;                      // of all traces; lengths that are not given are found from the job
  std::optional<Limits> limits;     // none: nothing is judged
};

// The languages that a report can have: "en", "de", "fr", "es".
REFLYZE_API std::vector<std::string> PaperLanguages();

// The kinds of file, by the ending of the name: ".pdf", ".svg", ".png", ".xlsx".
REFLYZE_API std::vector<std::string> PaperEndings();

// A report of these traces, as the files to be written. The ending of the name tells the kind; pictures of
// several pages are one file each, FILE-1.png and so on. Traces that belong to one fibre share a page, and
// several fibres get a summary in front. The same input gives the same bytes. Throws Error kUsage for another
// ending, a language that is not known and a logo that is no PNG, kUnreadable where no trace was measured. Of
// no traces there are no files, only what is wrong with the rest.
REFLYZE_API std::vector<Output> ReportOf(const std::string& file, const std::vector<PicturedTrace>& traces,
                                         const PaperOptions& options = {});

// How a program that loads this library at run time comes in: by the function ReflyzePaperDoor, which takes
// nothing and gives a pointer to this.
struct PaperDoor {
  const char* version = "";                       // of the library, which has to be the program's own
  std::size_t optionsBytes = 0;                   // size of PaperOptions there, which has to be the program's
  std::size_t pictureBytes = 0;                   // the same of PicturedTrace
  decltype(&ReportOf) reportOf = nullptr;         // the function of that name
  decltype(&PaperEndings) endings = nullptr;      // the function of that name
  decltype(&PaperLanguages) languages = nullptr;  // the function of that name
};

}  // namespace reflyze
