// SPDX-License-Identifier: Apache-2.0
#include "lib/ForeignFile.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "lib/Text.h"

namespace reflyze {
namespace {

using namespace std::string_view_literals;

// What can be done about a file of that kind.
enum class Remedy {
  kExport,  // it holds a trace, perhaps, in a format that its maker alone knows
  kUnpack,  // a record may be inside
  kImport,  // it may be a curve
};

struct FileKind {
  std::string_view mark;  // the name's ending, or the first bytes
  const char* what;
  Remedy remedy = Remedy::kExport;
};

// Instruments store traces in formats of their own, which nobody but their makers can tell by their bytes.
constexpr FileKind kByEnding[] = {
    {".trc"sv, "a trace in an instrument's own format (.trc)"},
    {".bdr"sv, "a measurement of both directions in an instrument's own format (.bdr)"},
    {".msor"sv, "several traces in an instrument's own format (.msor)"},
};

constexpr FileKind kByBytes[] = {
    {"PK\3\4"sv, "a ZIP archive", Remedy::kUnpack},
    {"PK\5\6"sv, "an empty ZIP archive", Remedy::kUnpack},
    {"\x1F\x8B"sv, "a compressed file (gzip)", Remedy::kUnpack},
    {"BZh"sv, "a compressed file (bzip2)", Remedy::kUnpack},
    {"\xFD\x37zXZ\0"sv, "a compressed file (xz)", Remedy::kUnpack},
    {"\x28\xB5\x2F\xFD"sv, "a compressed file (zstd)", Remedy::kUnpack},
    {"7z\xBC\xAF\x27\x1C"sv, "a 7z archive", Remedy::kUnpack},
    {"Rar!\x1A\7"sv, "a RAR archive", Remedy::kUnpack},
    {"%PDF-"sv, "a PDF document"},
    {"\x89PNG\r\n"sv, "an image (PNG)"},
    {"\xFF\xD8\xFF"sv, "an image (JPEG)"},
    {"GIF8"sv, "an image (GIF)"},
    {"II*\0"sv, "an image (TIFF)"},
    {"MM\0*"sv, "an image (TIFF)"},
    {"\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1"sv, "an office document"},
    {"\xFF\xFE"sv, "text (UTF-16)"},
    {"\xFE\xFF"sv, "text (UTF-16)"},
};

std::string_view HeadOf(const std::vector<char>& bytes) {
  constexpr std::size_t kEnough = 4096;  // bytes that tell text from other bytes
  return {bytes.data(), std::min(bytes.size(), kEnough)};
}

bool StartsWith(std::string_view text, std::string_view mark) { return text.substr(0, mark.size()) == mark; }

bool EndsWith(std::string_view name, std::string_view ending) {
  if (name.size() < ending.size()) return false;
  return std::equal(ending.begin(), ending.end(), name.end() - static_cast<std::ptrdiff_t>(ending.size()),
                    [](char small, char c) { return (c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c) == small; });
}

// A bitmap's two letters alone might begin a text: four bytes behind its size are 0.
bool IsBitmap(std::string_view head) {
  return StartsWith(head, "BM"sv) && head.size() >= 10 && head.substr(6, 4) == "\0\0\0\0"sv;
}

// No byte that a terminal would act on, but those that end lines and set columns. Fewer than four bytes are
// as likely the begin of something else.
bool IsText(std::string_view head) {
  return head.size() >= 4 && std::all_of(head.begin(), head.end(), [](char c) {
           return c == '\n' || c == '\r' || c == '\t' || c == '\f' || !IsControl(c);
         });
}

const char* KindOfText(std::string_view head) {
  if (StartsWith(head, "\xEF\xBB\xBF"sv)) head.remove_prefix(3);
  const std::size_t first = head.find_first_not_of(" \t\r\n"sv);
  if (first == std::string_view::npos) return "blank text";
  head.remove_prefix(first);
  if (head[0] == '{' || head[0] == '[') return "text (JSON)";
  if (StartsWith(head, "<!DOCTYPE html"sv) || StartsWith(head, "<html"sv)) return "a page of the web (HTML)";
  if (head[0] == '<') return "text (XML)";
  return "text";
}

FileKind KindOf(std::string_view name, std::string_view head) {
  for (const FileKind& kind : kByEnding) {
    if (EndsWith(name, kind.mark)) return kind;
  }
  for (const FileKind& kind : kByBytes) {
    if (StartsWith(head, kind.mark)) return kind;
  }
  if (IsBitmap(head)) return {""sv, "an image (BMP)"};
  if (IsText(head)) {
    const char* const what = KindOfText(head);
    return {""sv, what, what == std::string_view("text") ? Remedy::kImport : Remedy::kExport};
  }
  return {""sv, nullptr};
}

}  // namespace

std::string WhatItSeems(const std::string& name, const std::vector<char>& bytes) {
  const std::string_view head = HeadOf(bytes);
  constexpr std::string_view kRecord = "Map\0"sv;
  if (head.substr(0, kRecord.size()) == kRecord.substr(0, head.size())) return "";
  const FileKind kind = KindOf(name, head);
  if (kind.what == nullptr) return "";
  const char* remedy = "; export";
  if (kind.remedy == Remedy::kUnpack) remedy = "; unpack it first, or export";
  if (kind.remedy == Remedy::kImport) remedy = "; reflyze import reads curves in CSV, or export";
  return std::string("it seems to be ") + kind.what + remedy +
         " the trace as SOR (SR-4731) with the program of the instrument's maker";
}

}  // namespace reflyze
