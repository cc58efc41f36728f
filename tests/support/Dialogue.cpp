#include "support/Dialogue.h"

#include "support/TestImage.h"

#include <boost/algorithm/string/replace.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <fstream>

namespace orvane::testing {
namespace {

std::string takeWord(std::string& line, std::string_view end = " ") {
  const auto at = line.find(end);
  std::string word = line.substr(0, at);
  line.erase(0, at == std::string::npos ? at : at + end.size());
  return word;
}

void read(Dialogue& dialogue, std::string line) {
  if (line.empty()) return;
  if (std::islower(static_cast<unsigned char>(line.front())) != 0) {
    const auto name = takeWord(line);
    dialogue.given[name] = line;
    return;
  }
  dialogue.lines.push_back(takeWord(line, " -> "));
  dialogue.told.push_back(line);
}

std::vector<Dialogue> dialoguesIn(std::string_view name) {
  std::ifstream text(testData(name));
  std::vector<Dialogue> dialogues;
  for (std::string line; std::getline(text, line);) {
    if (line.starts_with('#')) {
      dialogues.push_back({.title = line, .given = {}, .lines = {}, .told = {}});
    } else {
      read(dialogues.back(), line);
    }
  }
  return dialogues;
}

}  // namespace

std::string lineOf(const RecordedRequest& request) {
  auto target = request.target().substr(std::string_view("/photos").size());
  if (target.starts_with("/k")) target.erase(0, 2);
  const auto range = request.header("Range");
  return request.method() + target + (range ? " " + range->substr(range->find('=') + 1) : "");
}

std::vector<std::string> linesOf(const FaultServer& server) {
  std::vector<std::string> lines;
  for (const auto& request : server.requests()) lines.push_back(lineOf(request));
  return lines;
}

Reaction reactionTo(const std::string& told) {
  if (told == "lost") return {.answer = "", .end = Reaction::End::close};
  if (told == "endless") {
    return {.answer = "HTTP/1.1 206 OK\r\nETag: x\r\n\r\n" + std::string(1 << 20, 'x'),
            .end = Reaction::End::repeat};
  }
  std::string fields = told;
  const int status = std::stoi(takeWord(fields));
  if (fields.empty() || fields.starts_with('<')) return answer(status, fields);
  std::string body = fields;
  fields = takeWord(body, "| ");
  boost::replace_all(fields, "; ", "\r\n");
  if (!body.empty()) fields += "\r\nContent-Length: " + std::to_string(body.size());
  return {.answer = "HTTP/1.1 " + std::to_string(status) + "\r\n" + fields + "\r\n\r\n" + body};
}

void expectDialogues(std::string_view file, const DialogueStore& store,
                     const DialogueClient& client) {
  for (const auto& dialogue : dialoguesIn(file)) {
    SCOPED_TRACE(dialogue.title);
    std::size_t count = 0;  // On the server's thread only.
    FaultServer server([&](const RecordedRequest& request) {
      const bool isExpected = count + 1 < dialogue.lines.size();
      return store(request, isExpected ? dialogue.told[count++] : "");
    });
    const auto outcome = client(dialogue, server.url());
    auto lines = linesOf(server);
    lines.push_back("= " + outcome);
    EXPECT_EQ(lines, dialogue.lines);
  }
}

}  // namespace orvane::testing
