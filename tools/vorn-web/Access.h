// Who may see the page: whoever has its address with the token, from this machine, and not by way of another site.
#pragma once

#include <optional>
#include <string>

namespace vorn_web {

/** What a request says of where it comes from. Empty where it does not say it. */
struct Visitor {
  std::string host;    ///< header Host
  std::string origin;  ///< header Origin
  std::string cookie;  ///< header Cookie
};

struct Refusal {
  int status = 0;
  std::string text;  ///< One line, with its end.
};

class Access {
 public:
  /** Makes a token that nobody can guess. */
  Access();
  explicit Access(std::string newToken) : token(std::move(newToken)) {}

  const std::string& Token() const { return token; }
  bool IsToken(const std::string& text) const;
  /** The name of the cookie that carries the token. A browser has one jar for all ports of a host. */
  static std::string CookieName(int port) { return "vorn-web-" + std::to_string(port); }

  /**
   * That the request was sent to a name of this machine, so that no name of another site can be made to lead here, and
   * by a page of ours, if by a page.
   */
  static std::optional<Refusal> RefuseAddress(const Visitor& visitor);
  /** That it has the token. */
  std::optional<Refusal> RefuseStranger(const Visitor& visitor, int port) const;

 private:
  std::string token;
};

}  // namespace vorn_web
