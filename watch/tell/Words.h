// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

#include "watch/tell/Channel.h"

// A message in words, and texts made fit to be sent.

namespace reflyze::watch {

// At most so many bytes of UTF-8, whole letters; what is no UTF-8 becomes "?". Control characters become
// blanks, so that no name of a fibre ends a line of a protocol.
std::string OneLine(const std::string& text, std::size_t mostBytes = 1000);
// "2026-03-01T12:00:00.250Z"; empty for 0.
std::string IsoTime(Millis time);
// "critical: broken, FIBRE at 17.194 km"
std::string SubjectOf(const Message& message);
// Lines for people.
std::string BodyOf(const Message& message);

}  // namespace reflyze::watch
