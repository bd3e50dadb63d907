#include "PageServer.h"

#include <algorithm>
#include <array>
#include <utility>

#include <httplib.h>

#include "PageFiles.h"

namespace vorn_web {
namespace {

using httplib::Request;
using httplib::Response;
using support::Json;
using support::MonitorOutcome;

constexpr char LOOPBACK[] = "127.0.0.1";
constexpr int MOST_PAGES = 16;           // each keeps a thread
constexpr std::size_t MORE_THREADS = 8;  // for all other requests
constexpr std::size_t LONGEST_BODY = 65536;
constexpr time_t LONGEST_READ = 5;  // seconds
constexpr std::chrono::seconds BETWEEN_SIGNS_OF_LIFE{10};
constexpr std::chrono::seconds LONGEST_REQUEST{5};

constexpr char JSON[] = "application/json; charset=utf-8";
constexpr char PLAIN[] = "text/plain; charset=utf-8";

// No line of a script or a style stands in the page itself, so nothing that is written into it could become one.
constexpr char POLICY[] =
    "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self' data:; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

/** As it is: the library would compress it anew for each request if it were a plain body. */
void Send(Response& response, std::string text, const char* type) {
  const std::size_t size = text.size();
  response.set_content_provider(
      size, type, [body = std::move(text)](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
        return sink.write(body.data() + offset, length);
      });
}

void Refuse(Response& response, int status, const std::string& text) {
  response.status = status;
  response.set_content(text, PLAIN);
}

void SendFile(const PageFile& file, const Request& request, Response& response) {
  if (request.get_header_value("Accept-Encoding").find("gzip") == std::string::npos) {
    return Refuse(response, 406, "this comes compressed; expected 'Accept-Encoding: gzip'\n");
  }
  response.set_header("Content-Encoding", "gzip");
  response.set_content_provider(file.gzip.size(), std::string(file.type),
                                [&file](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                                  return sink.write(file.gzip.data() + offset, length);
                                });
}

/** What a page may ask for: what changes something. Everything else is on the board. */
bool IsChange(const std::string& word) {
  constexpr std::array<std::string_view, 7> CHANGES = {"insert", "remove", "replace", "tap", "edit", "do", "timing"};
  return std::ranges::find(CHANGES, word) != CHANGES.end();
}

std::vector<std::string> WordsOf(const std::string& body) {
  std::vector<std::string> words;
  const Json request = Json::parse(body, nullptr, false);
  for (const Json& word : support::ListOf(request, "words")) {
    if (!word.is_string()) return {};
    words.push_back(word.get<std::string>());
  }
  return words;
}

int StatusOf(MonitorOutcome outcome) {
  switch (outcome) {
    case MonitorOutcome::DONE: return 200;
    case MonitorOutcome::FAILED: return 409;
    case MonitorOutcome::LATE: return 504;
    case MonitorOutcome::NONSENSE: return 502;
    case MonitorOutcome::NOBODY:
    case MonitorOutcome::NOT_ALLOWED:
    case MonitorOutcome::CANCELLED: break;
  }
  return 503;
}

void SendError(Response& response, int status, const std::string& text) {
  response.status = status;
  Send(response, support::ToText({{"error", text}}), JSON);
}

}  // namespace

PageServer::PageServer(Board& newBoard, const History& newHistory, Observer& newObserver)
    : board(newBoard), history(newHistory), observer(newObserver), server(std::make_unique<httplib::Server>()) {
  server->new_task_queue = [] { return new httplib::ThreadPool(MOST_PAGES + MORE_THREADS); };
  server->set_keep_alive_max_count(1);  // a refused request's body is never taken for the next request
  server->set_read_timeout(LONGEST_READ);
  server->set_payload_max_length(LONGEST_BODY);
  server->set_default_headers({{"Content-Security-Policy", POLICY},
                               {"X-Content-Type-Options", "nosniff"},
                               {"Referrer-Policy", "no-referrer"},
                               {"Cross-Origin-Resource-Policy", "same-origin"},
                               {"Cache-Control", "no-store"}});
  Route();
}

PageServer::~PageServer() { Stop(); }

int PageServer::Bind(int wanted) {
  if (wanted == 0) return port = server->bind_to_any_port(LOOPBACK);
  return port = server->bind_to_port(LOOPBACK, wanted) ? wanted : -1;
}

std::string PageServer::Address() const {
  return "http://" + std::string(LOOPBACK) + ':' + std::to_string(port) + "/?token=" + access.Token();
}

// A server that does not run yet cannot be stopped.
void PageServer::Start() {
  thread = std::thread([this] { server->listen_after_bind(); });
  while (!server->is_running()) std::this_thread::yield();
}

void PageServer::Stop() {
  server->stop();
  if (thread.joinable()) thread.join();
}

bool PageServer::Admit(const Request& request, Response& response) const {
  const Visitor visitor = {request.get_header_value("Host"), request.get_header_value("Origin"),
                           request.get_header_value("Cookie")};
  auto refusal = Access::RefuseAddress(visitor);
  if (!refusal && request.path == "/" && access.IsToken(request.get_param_value("token"))) {
    response.set_header("Set-Cookie",
                        Access::CookieName(port) + '=' + access.Token() + "; HttpOnly; SameSite=Strict; Path=/");
    response.set_redirect("/", 303);  // so that the token stays in no history
    return true;
  }
  if (!refusal) refusal = access.RefuseStranger(visitor, port);
  if (!refusal && request.method != "GET" && !(request.method == "POST" && request.path == "/request")) {
    refusal = Refusal{405, "expected GET, or POST /request\n"};
  }
  if (!refusal && request.method == "POST" && !request.has_header("Content-Length")) {
    refusal = Refusal{411, "expected a Content-Length\n"};
  }
  if (refusal) Refuse(response, refusal->status, refusal->text);
  return refusal.has_value();
}

void PageServer::Route() {
  server->set_pre_routing_handler([this](const Request& request, Response& response) {
    return Admit(request, response) ? httplib::Server::HandlerResponse::Handled
                                    : httplib::Server::HandlerResponse::Unhandled;
  });
  for (const PageFile& file : PageFiles()) {
    server->Get(std::string(file.path),
                [&file](const Request& request, Response& response) { SendFile(file, request, response); });
  }
  server->Get("/history", [this](const Request&, Response& response) { Send(response, history.ToJson(), JSON); });
  server->Get("/plugins", [this](const Request&, Response& response) { Send(response, plugins.ToJson(), JSON); });
  server->Get("/news", [this](const Request&, Response& response) { SendNews(response); });
  server->Post("/request", [this](const Request& request, Response& response) { Carry(request, response); });
}

void PageServer::SendNews(Response& response) {
  if (board.Readers() >= MOST_PAGES) return Refuse(response, 503, "too many pages are open\n");
  const auto reader = std::make_shared<Board::Reader>(board);
  response.set_chunked_content_provider("text/event-stream", [this, reader](std::size_t, httplib::DataSink& sink) {
    std::string text;
    for (const auto& notice : reader->Next(BETWEEN_SIGNS_OF_LIFE)) {
      text += "event: " + notice.topic + "\ndata: " + notice.text + "\n\n";
    }
    if (board.IsClosed()) return sink.done(), true;
    if (text.empty()) text = ": still here\n\n";  // fails where the page has gone
    return sink.write(text.data(), text.size());
  });
}

void PageServer::Carry(const Request& request, Response& response) {
  const std::vector<std::string> words = WordsOf(request.body);
  if (words.empty() || !IsChange(words[0])) {
    return SendError(response, 400, R"(expected {"words": ["insert" or another request that changes something, ...]})");
  }
  const pid_t pid = observer.ProcessId();
  if (pid == 0) return SendError(response, 503, "there is no process now");
  support::MonitorClient monitor(pid);  // a late reply dies with its connection
  const auto reply = monitor.Ask(words, {LONGEST_REQUEST, [this] { return board.IsClosed(); }});
  observer.Refresh();
  if (reply.outcome == MonitorOutcome::LATE) {
    return SendError(response, 504, "not done in 5 s; it may still be: the route has to come to the end of its cycle");
  }
  if (!reply.IsDone()) return SendError(response, StatusOf(reply.outcome), reply.problem);
  Send(response, support::ToText(reply.json), JSON);
}

}  // namespace vorn_web
