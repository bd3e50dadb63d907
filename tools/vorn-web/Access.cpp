#include "Access.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>

#include "support/Format.h"

namespace vorn_web {
namespace {

constexpr std::size_t TOKEN_BYTES = 20;

std::string RandomToken() {
  std::array<unsigned char, TOKEN_BYTES> bytes;
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    throw std::system_error(errno, std::generic_category(), "no random numbers for the token");
  }
  std::string text;
  for (const unsigned char byte : bytes) text += support::Format("%02x", static_cast<unsigned>(byte));
  return text;
}

/** "localhost" of "localhost:8080", "[::1]" of "[::1]:8080". */
std::string_view WithoutPort(std::string_view host) {
  const auto colon = host.rfind(':');
  const bool isPort = colon != host.npos && host.find_first_not_of("0123456789", colon + 1) == host.npos;
  return isPort ? host.substr(0, colon) : host;
}

/** The value of one cookie; empty where there is none. */
std::string_view CookieOf(std::string_view cookies, const std::string& name) {
  while (!cookies.empty()) {
    const auto end = std::min(cookies.find(';'), cookies.size());
    std::string_view one = cookies.substr(0, end);
    one.remove_prefix(std::min(one.find_first_not_of(' '), one.size()));
    if (one.substr(0, name.size() + 1) == name + '=') return one.substr(name.size() + 1);
    cookies.remove_prefix(std::min(end + 1, cookies.size()));
  }
  return {};
}

}  // namespace

Access::Access() : token(RandomToken()) {}

/** Takes as long for a token that is nearly right as for any other. */
bool Access::IsToken(const std::string& text) const {
  if (text.size() != token.size()) return false;
  unsigned difference = 0;
  for (std::size_t i = 0; i < token.size(); ++i) difference |= static_cast<unsigned char>(text[i] ^ token[i]);
  return difference == 0;
}

std::optional<Refusal> Access::RefuseAddress(const Visitor& visitor) {
  constexpr std::array<std::string_view, 3> OURS = {"127.0.0.1", "localhost", "[::1]"};
  // Any port: one that leads here through a tunnel need not be ours.
  if (std::ranges::find(OURS, WithoutPort(visitor.host)) == OURS.end()) {
    return Refusal{403, "this page is for 127.0.0.1 and localhost, not for another Host\n"};
  }
  if (!visitor.origin.empty() && visitor.origin != "http://" + visitor.host) {
    return Refusal{403, "a page of another Origin has nothing to ask here\n"};
  }
  return std::nullopt;
}

std::optional<Refusal> Access::RefuseStranger(const Visitor& visitor, int port) const {
  if (IsToken(std::string(CookieOf(visitor.cookie, CookieName(port))))) return std::nullopt;
  return Refusal{401, "open the address that vorn-web printed, with its token\n"};
}

}  // namespace vorn_web
