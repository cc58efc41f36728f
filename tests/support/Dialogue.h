#pragma once

#include "support/FaultServer.h"

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::testing {

/// A paragraph of a file that tests/dialogues/README.md describes.
struct Dialogue {
  std::string title;
  std::map<std::string, std::string> given;  ///< First word of a line → the rest.
  std::vector<std::string> lines;            ///< Requests, and the outcome last.
  std::vector<std::string> told;             ///< What the store does; empty: it behaves well.
};

/// Method, target without bucket and key, range.
[[nodiscard]] std::string lineOf(const RecordedRequest& request);
[[nodiscard]] std::vector<std::string> linesOf(const FaultServer& server);

/// What the server does when it is told "lost", "endless" or a response.
[[nodiscard]] Reaction reactionTo(const std::string& told);

using DialogueStore =
    std::function<Reaction(const RecordedRequest& request, const std::string& told)>;
/// Returns the outcome.
using DialogueClient = std::function<std::string(const Dialogue& dialogue, const std::string& url)>;

/// Holds all dialogues of that file, and expects their requests and outcomes.
void expectDialogues(std::string_view file, const DialogueStore& store,
                     const DialogueClient& client);

}  // namespace orvane::testing
