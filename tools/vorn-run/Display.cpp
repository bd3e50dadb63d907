#include "Display.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>

#include "support/Format.h"
#include "support/ReadingText.h"

namespace vorn::run {
namespace {

using Figures = Graph::Figures;
using support::Format;

std::string Clock(double seconds) {
  const auto tenths = static_cast<long long>(seconds * 10);
  return Format("%lld:%02lld:%02lld.%lld", tenths / 36000, tenths / 600 % 60, tenths / 10 % 60, tenths % 10);
}

std::string Seconds(double seconds) { return Format(seconds < 1 ? "%.3g s" : "%.3f s", seconds); }

std::string TimesRealTime(const Figures& figures, double elapsedSeconds) {
  const double times = elapsedSeconds > 0 ? figures.seconds / elapsedSeconds : 0;
  return Format(times < 100 ? "%.1f times real time" : "%.0f times real time", times);
}

std::string Count(std::uint64_t count, const char* what) {
  return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

/** 0:01:05.2 / 0:10:00.0, 440 times real time. */
std::string ProgressText(const Figures& figures, double elapsedSeconds) {
  std::string text = Clock(figures.areKnown ? figures.seconds : elapsedSeconds);
  if (figures.length) text += " / " + Clock(*figures.length);
  if (figures.areKnown) text += ", " + TimesRealTime(figures, elapsedSeconds);
  if (figures.errorFrames > 0) text += ", " + Count(figures.errorFrames, "error frame");
  return text;
}

}  // namespace

Display::Display(bool quiet) : isQuiet(quiet), showsProgress(!quiet && isatty(STDERR_FILENO) == 1) {}

Display::~Display() {
  if (progressIsThere) std::fputs("\r\033[K", stderr);
}

void Display::Progress(const Figures& figures, double elapsedSeconds) {
  if (!showsProgress) return;
  std::fprintf(stderr, "\r%s\033[K", ProgressText(figures, elapsedSeconds).c_str());
  progressIsThere = true;
}

void Display::Line(const std::string& text) {
  std::fprintf(stderr, "%svorn-run: %s\n", progressIsThere ? "\r\033[K" : "", text.c_str());
  progressIsThere = false;
}

void Display::Complain(const std::string& text) { Line(text); }

void Display::Say(const std::string& text) {
  if (!isQuiet) Line(text);
}

std::string SummaryText(const Figures& figures, double elapsedSeconds) {
  if (!figures.areKnown) return Seconds(elapsedSeconds) + ", frames not counted by any block";
  return Count(figures.frames, "frame") + ", " + Seconds(figures.seconds) + " of audio in " + Seconds(elapsedSeconds) +
         " (" + TimesRealTime(figures, elapsedSeconds) + "), " + Count(figures.errorFrames, "error frame");
}

std::vector<std::string> ReadingLines(const std::vector<Graph::Reading>& readings) {
  std::vector<std::string> lines;
  std::string block;
  for (const Graph::Reading& reading : readings) {
    if (std::isnan(reading.value) || reading.unit == "s" || reading.unit == "samples") continue;
    if (reading.block == block) {
      lines.back() += ", ";
    } else {
      lines.push_back("block '" + reading.block + "': ");
      block = reading.block;
    }
    lines.back() += reading.name + ' ' + support::ReadingText(reading.value, reading.unit);
    if (!reading.unit.empty()) lines.back() += ' ' + reading.unit;
  }
  return lines;
}

std::string WhereText(const Graph::Comparison& output, std::uint64_t sample) {
  return "block '" + output.block + "', output " + std::to_string(output.output) + ": sample " +
         std::to_string(sample) + ", " + Seconds(static_cast<double>(sample) / output.rate);
}

std::vector<std::string> ReplayLines(const std::vector<Graph::Comparison>& outputs) {
  std::vector<std::string> lines;
  for (const Graph::Comparison& one : outputs) {
    const std::string who = "block '" + one.block + "', output " + std::to_string(one.output) + ": ";
    const double rate = one.rate;
    std::string line = who + "all " + std::to_string(one.compared) + " samples are the same";
    if (one.firstDifference) {
      line = who + "differs from sample " + std::to_string(*one.firstDifference) + " on, at " +
             Seconds(static_cast<double>(*one.firstDifference) / rate);
      if (one.replayed < one.recorded) {
        line +=
            "; " + std::to_string(one.replayed) + " samples came, " + std::to_string(one.recorded) + " were recorded";
      }
    } else if (one.settled > 0) {
      line = who + std::to_string(one.compared - one.settled) + " samples are the same, from " +
             Seconds(static_cast<double>(one.settled) / rate) + " on; what the block held before was not recorded";
    }
    lines.push_back(line);
  }
  return lines;
}

}  // namespace vorn::run
