// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "paper/Pages.h"
#include "reflyze/files.h"

namespace reflyze::paper {

// Pages as a PDF document, its day and title with it, and nothing of the machine.
std::string PdfOf(const std::vector<Page>& pages, const Setting& setting, const std::string& title);
// One page as a picture.
std::string SvgOf(const Page& page, const Setting& setting);
std::string PngOf(const Page& page, const Setting& setting);

// The names of the files of so many pictures: that which was asked for, or with a number in front of the
// ending.
std::vector<std::string> PictureNames(const std::string& file, size_t pictures);

}  // namespace reflyze::paper
