#include "manager/console/request_head.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace bxm::console {

namespace {

constexpr std::string_view kEnd = "\r\n";

bool isToken(std::string_view word) {
  constexpr std::string_view kOthers = "!#$%&'*+-.^_`|~";
  return !word.empty() && std::all_of(word.begin(), word.end(), [&](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           kOthers.find(c) != std::string_view::npos;
  });
}

/// That the library knows: it calls any other malformed.
bool isMethod(std::string_view word) {
  constexpr std::string_view kMethods[] = {"GET",    "HEAD",    "POST",    "PUT",  "PATCH",
                                           "DELETE", "CONNECT", "OPTIONS", "TRACE"};
  return std::find(std::begin(kMethods), std::end(kMethods), word) != std::end(kMethods);
}

bool isPrintable(char c) { return c > ' ' && c < '\x7F'; }

std::string lower(std::string_view text) {
  std::string word(text);
  for (char& c : word)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return word;
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

RequestHead refused(int status, const char* fault) {
  RequestHead head;
  head.status = status;
  head.fault = fault;
  return head;
}

/// What is wrong with it, nullptr nothing.
const char* readRequestLine(std::string_view line, RequestHead& head) {
  const std::size_t first = line.find(' '), last = line.rfind(' ');
  if (first == std::string_view::npos || first == last) return "the request line is malformed";
  const std::string_view target = line.substr(first + 1, last - first - 1);
  const std::string_view version = line.substr(last + 1);
  if (!isToken(line.substr(0, first)) || !target.starts_with('/') ||
      !std::all_of(target.begin(), target.end(), isPrintable))
    return "the request line is malformed";
  if (version != "HTTP/1.1" && version != "HTTP/1.0") return "only HTTP/1.1 is spoken here";
  head.method = line.substr(0, first);
  head.isOld = version.ends_with('0');
  return nullptr;
}

const char* readHeader(std::string_view line, RequestHead& head) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos || !isToken(line.substr(0, colon)))
    return "a header is malformed";
  const std::string_view value = trimmed(line.substr(colon + 1));
  if (std::any_of(value.begin(), value.end(), [](char c) {
        return (static_cast<unsigned char>(c) < ' ' && c != '\t') || c == '\x7F';
      }))
    return "a header has a control character";
  const auto [at, isNew] = head.headers.emplace(lower(line.substr(0, colon)), value);
  // Those that may be given several times mean nothing here.
  constexpr std::string_view kOnce[] = {"host",          "content-length", "transfer-encoding",
                                        "authorization", "cookie",         "origin",
                                        "bx-console",    "content-type"};
  if (!isNew && std::find(std::begin(kOnce), std::end(kOnce), at->first) != std::end(kOnce))
    return "a header is given twice";
  return nullptr;
}

/// Answers what is wrong with what the head says of the body; nothing where it is fine.
RequestHead readBodySize(RequestHead& head) {
  const auto length = head.headers.find("content-length");
  const auto coding = head.headers.find("transfer-encoding");
  const bool hasLength = length != head.headers.end(), isCoded = coding != head.headers.end();
  if (hasLength && isCoded) return refused(400, "the body has two lengths");
  if (isCoded && lower(coding->second) != "chunked")
    return refused(400, "this transfer encoding is not known");
  std::size_t bytes = isCoded ? kMostBody : 0;
  if (hasLength) {
    const std::string& text = length->second;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), bytes);
    const bool isHuge = error == std::errc::result_out_of_range;
    if ((error != std::errc() && !isHuge) || end != text.data() + text.size())
      return refused(400, "the length is no number");
    if (isHuge) bytes = std::numeric_limits<std::size_t>::max();
  }
  if ((head.method == "GET" || head.method == "HEAD") && bytes > 0)
    return refused(400, "a body is out of place");
  head.mostBody = bytes;
  return {};
}

} // namespace

RequestHead parseHead(std::string_view text) {
  RequestHead head;
  std::size_t at = text.find(kEnd);
  const std::string_view requestLine = text.substr(0, at);
  if (requestLine.size() > kMostTarget) return refused(414, "the request line is too long");
  if (const char* fault = readRequestLine(requestLine, head)) return refused(400, fault);
  if (!isMethod(head.method)) return refused(501, "this method is not known");
  for (at += kEnd.size(); text.substr(at, 2) != kEnd;) {
    const std::size_t end = text.find(kEnd, at);
    if (const char* fault = readHeader(text.substr(at, end - at), head)) return refused(400, fault);
    if (head.headers.size() > kMostHeaders) return refused(431, "there are too many headers");
    at = end + kEnd.size();
  }
  if (!head.headers.contains("host")) return refused(400, "there is no Host");
  if (const RequestHead fault = readBodySize(head); fault.isRefused()) return fault;
  head.text = requestLine;
  head.text += kEnd;
  for (const char* name : {"connection", "transfer-encoding", "content-length"})
    if (const auto header = head.headers.find(name); header != head.headers.end())
      head.text += std::string(name) + ": " + lower(header->second) + "\r\n";
  if (!head.headers.contains("content-length") && !head.headers.contains("transfer-encoding"))
    head.text += "content-length: 0\r\n";
  head.text += kEnd;
  return head;
}

} // namespace bxm::console
