#include "tests/manager/console/console.h"

#include <sys/stat.h>

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using namespace std::string_literals;

class ConsoleSafety : public Consoles {
protected:
  static inline const std::string kToken = "0123456789abcdef%41!";

  std::string tokenFile(const std::string& text, mode_t mode = 0600) const {
    support::writeFile(folder / "token", text);
    ::chmod((folder / "token").c_str(), mode);
    return folder / "token";
  }
  void serveWithToken() { serve({"--allow-changes", "--token-file", tokenFile(kToken + "\n")}); }
};

TEST_F(ConsoleSafety, NoPageOfElsewhereReachesIt) {
  serve();
  const std::string port_ = std::to_string(port);
  const auto withHost = [&](const std::string& host) {
    return ask("GET /api/v1/figures HTTP/1.1\r\nConnection: close\r\nHost: " + host + "\r\n\r\n")
        .status;
  };
  for (const char* host : {"localhost", "LocalHost", "127.0.0.1"})
    EXPECT_EQ(withHost(host), 200) << host;
  EXPECT_EQ(withHost("localhost:" + port_), 200);
  for (const char* host : {"evil.example", "127.0.0.1.evil.example", "localhost.evil.example:80",
                           "0.0.0.0", "", "[::1]", "127.0.0.2"})
    EXPECT_EQ(withHost(host), 403) << host;

  struct Row {
    const char* headers;
    int status;
  };
  const std::string messages = "/api/v1/messages"s + kJobs;
  for (const Row& row : std::initializer_list<Row>{
           {"", 403},
           {"BX-Console: yes\r\n", 403},
           {"BX-Console: change\r\nOrigin: http://evil.example\r\n", 403},
           {"BX-Console: change\r\nOrigin: null\r\n", 403},
           {"BX-Console: change\r\nOrigin: http://localhost.evil.example\r\n", 403},
           {"BX-Console: change\r\nOrigin: http://localhost\r\n", 201}})
    EXPECT_EQ(change("POST", messages, R"({"text":"a"})", row.headers).status, row.status)
        << row.headers;
  EXPECT_EQ(shown("JOBS"), "a\n");
  EXPECT_EQ(change("DELETE", "/api/v1/session", "", "").status, 403);
  const std::string log = console->err();
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 6) << log;
  const Answer page = get("/");
  EXPECT_THAT(page,
              Says(200, "Content-Security-Policy: default-src 'self'; frame-ancestors 'none'"));
  EXPECT_THAT(page.head,
              AllOf(HasSubstr("nosniff"), HasSubstr("no-referrer"), HasSubstr("no-cache")));
  EXPECT_EQ(get("/", "If-None-Match: " + page.header("ETag") + "\r\n").status, 304);
  EXPECT_EQ(get("/healthz").header("Cache-Control"), "no-store");
}

TEST_F(ConsoleSafety, ChangesNothingUnlessItMay) {
  serve({});
  const std::string jobs = kJobs;
  for (const auto& [method, path] :
       std::initializer_list<std::pair<std::string, std::string>>{{"POST", "queues"},
                                                                  {"PATCH", "queue" + jobs},
                                                                  {"DELETE", "queue" + jobs},
                                                                  {"POST", "purge" + jobs},
                                                                  {"POST", "move" + jobs},
                                                                  {"POST", "messages" + jobs}})
    EXPECT_THAT(change(method, "/api/v1/" + path, R"({"text":"a"})"), Says(403, "--allow-changes"));
  EXPECT_EQ(get("/api/v1/console").json()["allow_changes"], false);
  EXPECT_EQ(shown("JOBS"), "");
}

TEST_F(ConsoleSafety, WithATokenOnlyWhoKnowsItSeesAnything) {
  serveWithToken();
  const std::string bearer = "Authorization: bearer " + kToken + "\r\n";
  for (const char* path : {"/metrics", "/api/v1/figures", "/api/v1/events", "/api/v1/history",
                           "/api/v1/queue", "/api/v1/messages", "/api/v1/export"})
    EXPECT_THAT(get(path), Says(401, "WWW-Authenticate: Bearer")) << path;
  for (const char* path : {"/", "/healthz", "/api/v1/console"}) EXPECT_EQ(get(path).status, 200);
  EXPECT_EQ(get("/metrics", bearer + "Host2: any.example\r\n").status, 200);
  EXPECT_EQ(get("/api/v1/figures", "Authorization: Basic " + kToken + "\r\n").status, 401);
  EXPECT_EQ(change("POST", "/api/v1/messages"s + kJobs, R"({"text":"a"})").status, 401);
  EXPECT_EQ(change("POST", "/api/v1/messages"s + kJobs, R"({"text":"a"})", bearer + kChange).status,
            201);

  const auto signIn = [this](const std::string& token) {
    return change("POST", "/api/v1/session", R"({"token":")" + token + "\"}");
  };
  const Answer in = signIn(kToken);
  EXPECT_EQ(in.status, 204);
  const std::string cookie = in.header("Set-Cookie");
  EXPECT_THAT(cookie, AllOf(HasSubstr("HttpOnly"), HasSubstr("SameSite=Strict"),
                            HasSubstr("Max-Age=43200")));
  const std::string session = "Cookie: other=1; " + cookie.substr(0, cookie.find(';')) + "\r\n";
  EXPECT_EQ(get("/api/v1/figures", "Authorization: Basic eDp5\r\n" + session).status, 200);
  EXPECT_EQ(get("/api/v1/console", session).json()["signed_in"], true);
  Client stream(port);
  stream
      .send("GET /api/v1/events HTTP/1.1\r\nHost: any\r\nConnection: close\r\n" + session + "\r\n")
      .readTo("data");
  EXPECT_EQ(change("DELETE", "/api/v1/session", "", kChange + session).status, 204);
  EXPECT_EQ(get("/api/v1/figures", session).status, 401);
  stream.rest(); // ends with the session
  EXPECT_EQ(
      get("/api/v1/figures", "Cookie: " + cookie.substr(0, cookie.find('=')) + "=\r\n").status,
      401);

  std::map<int, int> guesses;
  for (int i = 0; i < 20; ++i) ++guesses[signIn(kToken + std::to_string(i)).status];
  EXPECT_GE(guesses[401], 1);
  EXPECT_GE(guesses[429], 5);
  EXPECT_EQ(guesses[401] + guesses[429], 20);
  EXPECT_EQ(get("/healthz", "Authorization: Bearer wrong\r\n").status, 200);
  Client other(port, INADDR_LOOPBACK + 1); // is not kept out by whoever guesses here
  other.send("GET /metrics HTTP/1.1\r\nHost: any\r\nConnection: close\r\n" + bearer + "\r\n");
  EXPECT_EQ(Answer(other.rest()).status, 200);
  EXPECT_THAT(console->err(),
              AllOf(HasSubstr(" token POST /api/v1/messages"), Not(HasSubstr(kToken))));
}

TEST_F(ConsoleSafety, BeginsOnlyAsItShould) {
  serve({"-m", "ORDERS"});
  struct Row {
    std::vector<std::string> options;
    int status;
    const char* text;
  };
  for (const Row& row : std::initializer_list<Row>{
           {{"--listen", "elsewhere:1"}, 2, "no address and port"},
           {{"--listen", "127.0.0.1:65536"}, 2, "no address and port"},
           {{"--listen", "::1:80"}, 2, "no address and port"},
           {{"--listen", "0.0.0.0:0"}, 2, "--token-file is needed"},
           {{"--listen", "127.0.0.1:" + std::to_string(port)}, 1, "in use"},
           {{"--listen", "127.0.0.1:0", "-m", "NONE"}, 1, "no queue manager NONE"},
           {{"--listen", "127.0.0.1:0", "--token-file", folder / "none"}, 1, "No such file"},
           {{"--listen", "127.0.0.1:0", "--token-file", folder.path()}, 1, "no regular file"},
           {{"--listen", "127.0.0.1:0", "--token-file", tokenFile(kToken, 0640)}, 1, "chmod 600"},
       }) {
    std::vector<std::string> words = row.options;
    words.insert(words.begin(), "serve");
    const auto result = bxadm(words);
    EXPECT_EQ(result.status, row.status) << row.text;
    EXPECT_THAT(result.err, HasSubstr(row.text));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
  }
  for (const std::string& text : {""s, "short"s, kToken + " " + kToken, kToken + "\n\n",
                                  std::string(513, 'x'), kToken + "\xC3\xA9"})
    EXPECT_THAT(bxadm({"serve", "--listen", "0.0.0.0:0", "--token-file", tokenFile(text)}),
                FailsWithOneLine("not one line of 16 to 512"))
        << text;
}

} // namespace
