#include "tests/manager/console/console.h"
#include "tests/support/postgres_cluster.h"

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using namespace std::string_literals;

class ConsoleRequests : public Consoles {
protected:
  explicit ConsoleRequests(const std::string& store = "") : Consoles(store) {}
  std::string at(const std::string& path) const { return "/api/v1/" + path + kJobs; }
  int import(const std::string& line) const {
    return support::Process({support::binDir() + "/bxadm", "import", "JOBS"})
        .environment("BXM_HOME", home)
        .input(line)
        .run()
        .status;
  }
};

/// Over a manager of each kind.
class ConsoleRequestsOnBoth : public ConsoleRequests,
                              public testing::WithParamInterface<const char*> {
protected:
  ConsoleRequestsOnBoth() : ConsoleRequests(GetParam() == "embedded"s ? "" : newDatabase()) {}

private:
  static std::string newDatabase() {
    static support::PostgresCluster cluster;
    static int count = 0;
    const std::string name = "console" + std::to_string(++count);
    cluster.psql("postgres", "CREATE DATABASE " + name);
    return cluster.uri(name);
  }
};
// A connection to a database is one thread's, and its library is not built for the thread
// sanitizer.
#ifdef __SANITIZE_THREAD__
constexpr const char* kKinds[] = {"embedded"};
#else
constexpr const char* kKinds[] = {"embedded", "postgresql"};
#endif
INSTANTIATE_TEST_SUITE_P(, ConsoleRequestsOnBoth, testing::ValuesIn(kKinds),
                         [](const auto& kind) { return std::string(kind.param); });

TEST_P(ConsoleRequestsOnBoth, TellWhatIsOnTheQueues) {
  done({"queue", "create", "A.FULL", "--max-depth", "0"});
  put("first\nsecond \xC3\xA9\n");
  EXPECT_EQ(
      import(R"({"id":"000102030405060708090a0b0c0d0e0f1011121314151617","base64":"bm8g/w=="})"),
      0);
  put(std::string(1023, 'x') + "\xC3\xA9\n");
  done({"manager", "create", "OTHER"});
  serve({"-m", "ORDERS"});
  EXPECT_EQ(get("/api/v1/queue?manager=OTHER&queue=JOBS").status, 404);
  json figures = get("/api/v1/figures").json();
  ASSERT_EQ(figures["managers"].size(), 1U);
  EXPECT_EQ(figures["managers"][0]["kind"], GetParam());
  EXPECT_TRUE(figures["managers"][0]["reachable"]);
  ASSERT_EQ(figures["queues"].size(), 2U);
  EXPECT_EQ(figures["queues"][0]["remark"], "full");
  EXPECT_EQ(figures["queues"][1]["queue"], "JOBS");
  EXPECT_EQ(figures["queues"][1]["depth"], 4);
  EXPECT_GE(figures["queues"][1]["oldest_age_ms"], 0);

  json queue = get(at("queue")).json();
  EXPECT_EQ(queue["queue"]["depth"], 4);
  EXPECT_EQ(queue["counted"]["puts"], 4);
  EXPECT_EQ(queue["definition"]["max_depth"], 5000);
  EXPECT_EQ(queue["history"]["depth"].back(), 4);
  json histories = get("/api/v1/history").json(); // ends with null where nobody has looked as yet
  EXPECT_THAT(histories["queues"][1]["depth"], Contains(4));

  json messages = get(at("messages") + "&offset=1&count=2").json();
  EXPECT_TRUE(messages["more"]);
  ASSERT_EQ(messages["messages"].size(), 2U);
  EXPECT_EQ(messages["messages"][0]["text"], "second \xC3\xA9\n");
  EXPECT_EQ(messages["messages"][1]["hex"], "6e6f20ff");
  json last = get(at("messages") + "&offset=3").json();
  EXPECT_FALSE(last["more"]);
  EXPECT_EQ(last["messages"][0]["text"], std::string(1023, 'x')); // not half a character
  EXPECT_TRUE(last["messages"][0]["truncated"]);
  const std::string id = last["messages"][0]["id"];
  EXPECT_EQ(get(at("message") + "&id=" + id).json()["text"], std::string(1023, 'x') + "\xC3\xA9\n");

  const Answer exported = ask("GET " + at("export") + " HTTP/1.0\r\nHost: localhost\r\n\r\n");
  EXPECT_EQ(exported.body, bxadm({"export", "JOBS"}).out);
  EXPECT_EQ(exported.header("Content-Disposition"), "attachment; filename=\"JOBS.jsonl\"");

  const std::string metrics = get("/metrics").body;
  for (const char* line : {"bxm_manager_up{manager=\"ORDERS\"} 1\n",
                           "bxm_queue_depth_messages{manager=\"ORDERS\",queue=\"JOBS\"} 4\n",
                           "bxm_queue_puts_total{manager=\"ORDERS\",queue=\"JOBS\"} 4\n",
                           "bxm_queue_max_depth_messages{manager=\"ORDERS\",queue=\"A.FULL\"} 0\n",
                           "# TYPE bxm_queue_gets_total counter\n", "bxm_console_streams 0\n"})
    EXPECT_THAT(metrics, HasSubstr(line));
  const std::string twice = "000102030405060708090a0b0c0d0e0f1011121314151617";
  EXPECT_EQ(import(R"({"text":"again","id":")" + twice + "\"}"), 0);
  for (const auto& [offset, text] :
       std::map<std::string, std::string>{{"0", "bm8g"}, {"3", "bm8g"}, {"5", "again"}})
    EXPECT_THAT(get(at("message") + "&id=" + twice + "&offset=" + offset), Says(200, text));
  EXPECT_EQ(ended(SIGINT).status, 0);
}

TEST_P(ConsoleRequestsOnBoth, ChangeQueuesAsTheCommandsDo) {
  serve();
  EXPECT_THAT(change("POST", "/api/v1/queues", R"({"manager":"ORDERS","queue":"B","max_depth":2})"),
              Says(201, "\"B\""));
  EXPECT_THAT(change("PATCH", at("queue"), R"({"put_inhibited":true})"), Says(200, "true"));
  EXPECT_THAT(change("POST", at("messages"), R"({"text":"x"})"), Says(409, "\"reason\":2051"));
  EXPECT_THAT(change("PATCH", at("queue"), R"({"put_inhibited":false})"), Says(200, "false"));
  EXPECT_THAT(change("POST", at("messages"), R"({"text":"eins\n","priority":1})"),
              Says(201, "\"id\""));
  EXPECT_THAT(change("POST", at("messages"),
                     R"({"base64":"dHdvCg==","expires_in_ms":99000,)"
                     R"("persistent":false,"priority":2})"),
              Says(201, "\"id\""));
  EXPECT_THAT(change("POST", at("messages"), R"({"text":"three\n"})"), Says(201, "\"id\""));
  EXPECT_EQ(shown("JOBS"), "two\neins\nthree\n");
  EXPECT_THAT(bxadm({"export", "JOBS"}).out,
              AllOf(HasSubstr("expires"), HasSubstr("\"persistent\":false")));
  EXPECT_THAT(change("POST", "/api/v1/move?x=" + std::string(200, 'x') + "&" + &kJobs[1],
                     R"({"to":"B","matching":"ein")" + std::string(70'000, ' ') + "}"),
              Says(200, "{\"moved\":1}"));
  EXPECT_THAT(change("POST", at("move"), R"({"to":"B"})"),
              Says(409, "maximum depth is 2; moved before that: 1"));
  EXPECT_EQ(shown("B") + shown("JOBS"), "two\neins\nthree\n");
  EXPECT_THAT(change("POST", at("purge"), R"({"confirm":"JOBS"})"), Says(200, "{\"purged\":1}"));
  EXPECT_THAT(change("DELETE", at("queue"), R"({"confirm":"JOBS"})"), Says(200, "JOBS"));
  EXPECT_EQ(done({"queue", "list"}).find("JOBS"), std::string::npos);
  EXPECT_THAT(console->err(),
              AllOf(HasSubstr(" 127.0.0.1 anybody POST /api/v1/purge?manager=ORDERS"
                              "&queue=JOBS confirm=JOBS: 200 done\n"),
                    HasSubstr("move?manager=ORDERS&queue=JOBS to=B matching=ein: 2"),
                    HasSubstr("text=... priority=1: 201"), Not(HasSubstr("eins"))));
}

TEST_P(ConsoleRequestsOnBoth, AreRefusedWithAReason) {
  serve();
  struct Row {
    const char *method, *target, *body;
    int status;
    const char* text;
  };
  const std::string messages = at("messages"), queue = at("queue"), move = at("move");
  for (const Row& row : std::initializer_list<Row>{
           {"GET", "/none", "", 404, "there is no /none"},
           {"GET", "/api/v1/../console.css/", "", 404, "no"},
           {"GET", "/api/v1/queue", "", 400, "'manager' is missing"},
           {"GET", "/api/v1/queue?manager=ORDERS", "", 400, "'queue' is missing"},
           {"GET", "/api/v1/queue?manager=NONE&queue=JOBS", "", 404, "no queue manager NONE"},
           {"GET", "/api/v1/queue?manager=ORDERS&queue=NONE", "", 404, "\"reason\":2085"},
           {"GET", "/api/v1/queue?manager=ORDERS&queue=%ff%22%0d%0aX:y", "", 404, "no queue"},
           {"GET", "/api/v1/export?manager=ORDERS&queue=%22%0d%0aX:y", "", 404, "no queue"},
           {"GET", "/api/v1/messages?manager=ORDERS&queue=JOBS&offset=100001", "", 400,
            "to 100000"},
           {"GET", "/api/v1/messages?manager=ORDERS&queue=JOBS&count=-1", "", 400, "to 200"},
           {"GET", "/api/v1/message?manager=ORDERS&queue=JOBS&id=0", "", 404, "no such message"},
           {"PUT", "/api/v1/queue", "{}", 405, "Allow: GET, HEAD, PATCH, DELETE\r\n"},
           {"POST", "/", "{}", 405, "cannot be asked this way"},
           {"POST", messages.c_str(), "", 400, "no JSON object"},
           {"POST", messages.c_str(), "{]", 400, "no JSON object"},
           {"POST", messages.c_str(), "[[[[[[[[", 400, "plain values"},
           {"POST", messages.c_str(), R"({"text":["a"]})", 400, "plain values"},
           {"POST", messages.c_str(), R"({"text":"a","base64":"YQ=="})", 400, "either"},
           {"POST", messages.c_str(), R"({"base64":"Y"})", 400, "not base64"},
           {"POST", messages.c_str(), R"({"text":"a","colour":"red"})", 400,
            "'colour' is not known"},
           {"POST", messages.c_str(), R"({"text":"a","priority":10})", 400, "from 0 to 9"},
           {"POST", messages.c_str(), R"({"text":"a","expires_in_ms":1e99})", 400, "whole number"},
           {"PATCH", queue.c_str(), R"({"max_depth":-1})", 400, "\"reason\":2023"},
           {"PATCH", queue.c_str(), R"({"max_depth":18446744073709551615})", 400, "whole number"},
           {"DELETE", queue.c_str(), R"({"confirm":"JOB"})", 400, "repeat the queue's name"},
           {"POST", move.c_str(), R"({"to":"NONE"})", 404, "no queue NONE"},
           {"POST", move.c_str(), R"({"to":"JOBS"})", 409, "itself"},
           {"POST", "/api/v1/queues", R"({"manager":"ORDERS","queue":"JOBS"})", 409, "2100"},
           {"POST", "/api/v1/queues", R"({"manager":"ORDERS","queue":"a b"})", 400, "A-Z"}}) {
    const Answer answer = row.body == ""s && row.method == "GET"s
                              ? get(row.target)
                              : change(row.method, row.target, row.body);
    EXPECT_THAT(answer, Says(row.status, row.text)) << row.method << " " << row.target << row.body;
    EXPECT_EQ(answer.header("Content-Type"), "application/problem+json");
    EXPECT_EQ(answer.json()["status"], row.status);
    EXPECT_EQ(answer.header("X"), "");
  }
  EXPECT_EQ(done({"queue", "list"}).find("a b"), std::string::npos);
}

TEST_P(ConsoleRequestsOnBoth, StreamsTellOfAPutAndEndWithTheConsole) {
  serve();
  Client stream(port);
  stream.send("GET /api/v1/events HTTP/1.1\r\nHost: localhost\r\n\r\n");
  EXPECT_THAT(stream.readTo("\"depth\":0"), HasSubstr("event: figures\ndata: {\"time\":"));
  done({"manager", "create", "LATER"});
  put("one\n");
  EXPECT_THAT(stream.readTo("\"depth\":1"), HasSubstr("\"depth\":1"));
  EXPECT_THAT(get("/metrics").body, HasSubstr("bxm_console_streams 1\n"));
  {
    Client other(port);
    other.send("GET /api/v1/events HTTP/1.1\r\nHost: localhost\r\n\r\n").readTo("data");
    EXPECT_THAT(get("/metrics").body, HasSubstr("bxm_console_streams 2\n"));
  }
  EXPECT_TRUE(support::eventually(
      [this] { return get("/metrics").body.find("bxm_console_streams 1\n") != std::string::npos; },
      std::chrono::seconds(2)));
  EXPECT_THAT(stream.readTo("LATER"), HasSubstr("LATER"));
  EXPECT_EQ(ended(SIGTERM).status, 0);
  stream.rest();
}

TEST_F(ConsoleRequests, OfAManagerThatCannotBeReachedHoldUpNoOther) {
  // A server that takes connections and never says a word.
  const int silent = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  socklen_t size = sizeof address;
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(::bind(silent, reinterpret_cast<sockaddr*>(&address), size), 0);
  ASSERT_EQ(::listen(silent, 9), 0);
  ::getsockname(silent, reinterpret_cast<sockaddr*>(&address), &size);
  support::writeFile(home + "/bxclient.ini", "[managers]\nSILENT = postgresql://x@127.0.0.1:" +
                                                 std::to_string(ntohs(address.sin_port)) +
                                                 "/x\nREFUSED = postgresql://x@127.0.0.1:1/x\n");
  serve();
  json figures = get("/api/v1/figures").json();
  ASSERT_EQ(figures["managers"].size(), 3U);
  EXPECT_TRUE(figures["managers"][0]["reachable"]);
  EXPECT_THAT(figures["managers"][1]["fault"].get<std::string>(), HasSubstr("127.0.0.1"));
  EXPECT_EQ(figures["managers"][2]["reachable"], false);
  EXPECT_EQ(figures["queues"].size(), 1U);
  EXPECT_THAT(get("/api/v1/queue?manager=REFUSED&queue=Q"), Says(503, "127.0.0.1"));
  EXPECT_EQ(get(at("queue")).status, 200);
  EXPECT_EQ(ended(SIGHUP).status, 0);
  ::close(silent);
}

} // namespace
