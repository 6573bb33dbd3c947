#include "tests/manager/console/console.h"

#include <random>

namespace {

using testing::HasSubstr;
using namespace std::string_literals;
using Clock = std::chrono::steady_clock;

class ConsoleLimits : public Consoles {
protected:
  void expectHealthy() const { EXPECT_THAT(get("/healthz"), Says(200, "ok")); }
};

TEST_F(ConsoleLimits, MalformedRequestsAreRefused) {
  serve();
  const std::string host = "Host: localhost\r\n",
                    post = "POST /api/v1/purge"s + kJobs + " HTTP/1.1\r\n" + host + kChange;
  struct Row {
    std::string request;
    int status; ///< 0: no answer
  };
  for (const Row& row : std::initializer_list<Row>{
           {"", 0},
           {"\r\n\r\n", 400},
           {"GET\r\n\r\n", 400},
           {"GET / HTTP/1.1\n\n", 0},
           {"GET / HTTP/1.1\r\n\r\n", 400},
           {"GET / HTTP/2.0\r\n" + host + "\r\n", 400},
           {"GET / HTTP/1.1\r\n" + host + host + "\r\n", 400},
           {"GET / HTTP/1.1\r\n" + host + "No colon\r\n\r\n", 400},
           {"GET / HTTP/1.1\r\n" + host + " folded: x\r\n\r\n", 400},
           {"GET / HTTP/1.1\r\n" + host + "Name : x\r\n\r\n", 400},
           {"GET / HTTP/1.1\r\n" + host + "X: a\rb\r\n\r\n", 400},
           {"GET / HTTP/1.1\r\n" + host + "X: a\0b\r\n\r\n"s, 400},
           {"GET /\0 HTTP/1.1\r\n"s + host + "\r\n", 400},
           {"GET http://localhost/ HTTP/1.1\r\n" + host + "\r\n", 400},
           {"GET /" + std::string(5000, 'a') + " HTTP/1.1\r\n" + host + "\r\n", 414},
           {"GET / HTTP/1.1\r\n" + host + "X: " + std::string(40000, 'a') + "\r\n\r\n", 431},
           {"GET / HTTP/1.1\r\n" + host + "Content-Length: 3\r\n\r\nabc", 400},
           {"GET / HTTP/1.1\r\n" + host + "Range: bytes=" + std::string(20000, '1') +
                "\r\nConnection: close\r\n\r\n",
            200},
           {"BREW / HTTP/1.1\r\n" + host + "\r\n", 501},
           {"OPTIONS * HTTP/1.1\r\n" + host + "\r\n", 400},
           {"OPTIONS / HTTP/1.1\r\n" + host + "\r\n", 403},
           {post + "Content-Length: -1\r\n\r\n", 400},
           {post + "Content-Length: 1, 1\r\n\r\n", 400},
           {post + "Content-Length: 99999999999999999999\r\n\r\n", 413},
           {post + "Content-Length: 8388609\r\n\r\n", 413},
           {post + "Content-Length: 2\r\nTransfer-Encoding: chunked\r\n\r\n{}", 400},
           {post + "Transfer-Encoding: gzip\r\n\r\n", 400},
           {post + "Transfer-Encoding: chunked\r\n\r\nxyz\r\n", 400},
           {post + "Transfer-Encoding: chunked\r\n\r\n-1\r\n{}\r\n0\r\n\r\n", 400},
           {post + "Content-Length: 5\r\n\r\n{}", 400},
           {"POST /api/v1/session HTTP/1.1\r\n" + host + kChange + "Content-Length: 5000\r\n\r\n{}",
            413}})
    EXPECT_EQ(ask(row.request).status, row.status) << row.request.substr(0, 200);
  std::string many = "GET / HTTP/1.1\r\n" + host;
  for (int i = 0; i < 200; ++i) many += "X" + std::to_string(i) + ": 1\r\n";
  EXPECT_EQ(ask(many + "\r\n").status, 431);
  std::string chunks = post + "Transfer-Encoding: chunked\r\n\r\n";
  for (int i = 0; i < 10; ++i) chunks += "100000\r\n" + std::string(1 << 20, ' ') + "\r\n";
  EXPECT_EQ(ask(chunks + "0\r\n\r\n").status, 413);
  EXPECT_THAT(console->err(), HasSubstr("queue=JOBS: 413 refused, the body is too long"));
  // What follows a change is never taken for a request, nor a body for one.
  const std::string second = "GET /healthz HTTP/1.1\r\n" + host + "\r\n";
  EXPECT_EQ(ask(post + "Content-Length: 2\r\n\r\n{}" + second).body.find("HTTP/1.1 200"),
            std::string::npos);
  Client two(port);
  two.send(second + second.substr(0, 9)).readTo("ok\n");
  EXPECT_THAT(two.send(second.substr(9)).readTo("ok\n"), HasSubstr("HTTP/1.1 200"));
  expectHealthy();
}

TEST_F(ConsoleLimits, ItSurvivesWhatNobodyWouldSend) {
  serve();
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto upTo = [&random](std::size_t most) { return random() % (most + 1); };
  const std::string host = " HTTP/1.1\r\nHost: localhost\r\n";
  const std::string seeds[] = {
      "GET /api/v1/messages"s + kJobs + "&offset=%30&count=5" + host + "Range: bytes=0-1\r\n\r\n",
      "POST /api/v1/messages"s + kJobs + host + kChange +
          "Content-Length: 12\r\n\r\n{\"text\":\"a\"}",
      "PATCH /api/v1/queue"s + kJobs + host + kChange +
          "Transfer-Encoding: chunked\r\n\r\n5\r\n{\"max\r\n0\r\n\r\n",
      "HEAD /api/v1/events" + host + "Connection: close\r\nExpect: 100-continue\r\n\r\n"};
  const std::string pieces[] = {"\r\n",
                                "%00",
                                "\0"s,
                                ": ",
                                "?",
                                "%",
                                "ffffffffffffffff\r\n",
                                "Content-Length: 9\r\n",
                                std::string(300, 'A')};
  for (int i = 0; i < 2000; ++i) {
    std::string request = seeds[upTo(3)];
    for (std::size_t changes = upTo(5) + 1; changes > 0; --changes) {
      const std::size_t at = upTo(request.size() - 1);
      switch (upTo(2)) {
      case 0: request[at] = static_cast<char>(upTo(255)); break;
      case 1: request.insert(at, pieces[upTo(8)]); break;
      default: request.erase(at, upTo(9)); break;
      }
      if (request.empty()) request = "\r\n";
    }
    ask(request);
  }
  expectHealthy();
  EXPECT_EQ(ended(SIGTERM).status, 0);
}

TEST_F(ConsoleLimits, SlowClientsHoldUpNobodyAndAreDropped) {
  serve();
  const auto begin = Clock::now();
  Client half(port), silent(port);
  half.send("GET / HTTP/1.1\r\nHost: lo");
  std::vector<std::unique_ptr<Client>> slow;
  const auto open = [&](int count, const std::string& request, const std::string& headers) {
    const std::string head = request + " HTTP/1.1\r\nHost: localhost\r\n" + headers + "\r\n";
    for (; count > 0; --count) slow.emplace_back(std::make_unique<Client>(port))->send(head);
  };
  const std::string messages = "/api/v1/messages"s + kJobs;
  open(16, "POST /api/v1/session", kChange + "Content-Length: 9\r\n"s);
  const std::string large = R"({"text":")" + std::string(4'000'000, 'x') + "\"}",
                    id = change("POST", messages, large).json().value("id", ""),
                    whole = "/api/v1/message"s + kJobs + "&id=" + id;
  open(16, "POST " + messages, kChange + "Content-Length: 5000\r\n"s);
  open(8, "GET " + whole, "");
  open(301, "GET /api/v1/events", "");
  EXPECT_TRUE(support::eventually([this] {
    return get("/metrics").body.find("bxm_console_streams 300\n") != std::string::npos;
  }));
  EXPECT_EQ(get("/api/v1/events").status, 429);
  EXPECT_THAT(get(whole), Says(429, "whole messages"));
  EXPECT_EQ(get(messages).status, 200);
  EXPECT_EQ(change("POST", messages, R"({"text":"a"})").status, 201);
  EXPECT_THAT(change("POST", messages, std::string(5000, ' ')), Says(429, "large body"));
  EXPECT_THAT(console->err(), HasSubstr("queue=JOBS: 429 refused, too many"));
  expectHealthy();
  EXPECT_THAT(Answer(half.rest()), Says(408, "too slow"));
  silent.rest();
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(20));
  EXPECT_EQ(ended(SIGTERM).status, 0);
}

} // namespace
