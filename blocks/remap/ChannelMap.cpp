#include "ChannelMap.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <stdexcept>
#include <string_view>

#include <vorn/Block.h>

namespace {

constexpr std::size_t MAX_CHANNELS = 4096;  // far more than a stream has, and a bound for "0..4294967295"

class Parser {
 public:
  explicit Parser(std::string_view map) : text(map) {}

  ChannelMap Map() {
    ChannelMap map;
    do {
      if (map.size() == vorn::Endpoint::COUNT) Fail("at most 32 outputs");
      map.push_back(Output());
    } while (Take("/"));
    SkipBlanks();
    if (at < text.size()) Fail("one of , / + - * .. or the end");
    return map;
  }

 private:
  ChannelList Output() {
    ChannelList output;
    do {
      Part(output);
      if (output.size() > MAX_CHANNELS) Fail("at most 4096 channels");
    } while (Take(","));
    return output;
  }

  void Part(ChannelList& output) {
    if (Take("_")) return output.emplace_back(), void();
    if (Take("-")) return output.push_back(Sum(Scaled(Source(), -1))), void();
    const Term first = Source();
    if (Take("..")) return Range(first, output);
    output.push_back(Sum(Scaled(first, 1)));
  }

  void Range(Term term, ChannelList& output) {
    const std::size_t last = Index("the last channel of a range", MAX_CHANNELS);
    for (; term.channel < last; ++term.channel) output.push_back({term});
    for (; term.channel > last; --term.channel) output.push_back({term});
    output.push_back({term});
  }

  Channel Sum(Term first) {
    Channel channel{first};
    for (;;) {
      if (Take("+")) {
        channel.push_back(Scaled(Source(), 1));
      } else if (Take("-")) {
        channel.push_back(Scaled(Source(), -1));
      } else {
        return channel;
      }
    }
  }

  Term Source() {
    const std::size_t before = at;
    const std::size_t first = Index("a channel", MAX_CHANNELS);
    if (!Take(":")) return {0, first, 1};
    at = before;
    const std::size_t input = Index("an input", vorn::Endpoint::COUNT);
    Take(":");
    return {input, Index("a channel", MAX_CHANNELS), 1};
  }

  Term Scaled(Term term, double sign) {
    term.factor = sign;
    if (!Take("*")) return term;
    const std::size_t before = at;
    double factor = 0;
    Take("+");
    if (!Read(factor) || !std::isfinite(factor)) at = before, Fail("a factor, such as 0.5 or -6dB,");
    term.factor *= Take("dB") ? std::pow(10.0, factor / 20) : factor;
    return term;
  }

  std::size_t Index(const char* what, std::size_t limit) {
    SkipBlanks();
    const std::size_t before = at;
    std::size_t index = 0;
    if (Read(index) && index < limit) return index;
    at = before;
    Fail(std::string(what) + ", 0 to " + std::to_string(limit - 1) + ",");
  }

  template <class Number>
  bool Read(Number& number) {
    SkipBlanks();
    const auto [end, error] = std::from_chars(text.data() + at, text.data() + text.size(), number);
    if (error != std::errc()) return false;
    at = static_cast<std::size_t>(end - text.data());
    return true;
  }

  bool Take(std::string_view sign) {
    SkipBlanks();
    if (text.substr(at, sign.size()) != sign) return false;
    at += sign.size();
    return true;
  }

  void SkipBlanks() { at = std::min(text.find_first_not_of(' ', at), text.size()); }

  [[noreturn]] void Fail(const std::string& expected) {
    const std::string rest = at < text.size() ? "'" + std::string(text.substr(at)) + "'" : "the end";
    throw std::invalid_argument("map '" + std::string(text) + "': expected " + expected + " at " + rest);
  }

  std::string_view text;
  std::size_t at = 0;
};

}  // namespace

ChannelMap ParseChannelMap(const std::string& text) { return Parser(text).Map(); }

bool OnlyMoves(const ChannelList& output) {
  return std::all_of(output.begin(), output.end(), [](const Channel& channel) {
    return channel.empty() || (channel.size() == 1 && channel[0].factor == 1);
  });
}

std::size_t ChannelsNeeded(const ChannelMap& map, std::size_t input) {
  std::size_t needed = 0;
  for (const ChannelList& output : map) {
    for (const Channel& channel : output) {
      for (const Term& term : channel) {
        if (term.input == input) needed = std::max(needed, term.channel + 1);
      }
    }
  }
  return needed;
}
