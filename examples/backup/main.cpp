// The command line: what is asked for, where the store is, what this device is like.
#include <orvane/platform/host/SystemLog.h>
#include <orvane/platform/http/RateLimits.h>

#include "Commands.h"
#include "Display.h"
#include "Setup.h"

#include <CLI/CLI.hpp>
#include <exception>
#include <functional>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>

namespace {

using namespace backup;

constexpr auto kFooter =
    "Exit status: 0 all well, 1 something failed, is missing or has changed, 2 usage or\n"
    "configuration, 130 interrupted.";
constexpr auto kConfigFooter =
    "CONFIG is one JSON object with the texts bucket, region, accessKey, secretKey, prefix (put\n"
    "before every key; may be empty) and endpoint (such as https://s3.example.org).\n\n";
constexpr auto kStateHelp =
    "Folder for the records, one per backup; without it, org.orvane.backup in $XDG_DATA_HOME or "
    "~/.local/share";

struct Arguments {
  std::optional<Path> folder;
  Path config;
  std::string text;
  Device device;
  bool retryAll = false;
  bool again = false;
  bool repairs = false;
  RestoreOptions restoring;
  std::int64_t limit = 0;  ///< Bytes per second; 0 for none.
};

/// Of what the engine logs, people are to see what went wrong: a photo that cannot be looked at, a
/// device whose tags cannot be read.
void showFailures() {
  orvane::SystemLog::setSink([](std::string_view line) {
    if (line.contains("] Vision classify failed: ") || line.contains("] Skipping device ")) {
      std::cerr << printable(line) + '\n';
    }
  });
}

/// Makes `app` understand every command; the one that is given becomes `chosen`.
void addCommands(CLI::App& app, Arguments& given, std::function<int()>& chosen) {
  const auto add = [&](const char* name, const char* what, std::function<int()> command) {
    auto* parser = app.add_subcommand(name, what);
    parser->callback([&chosen, command = std::move(command)] { chosen = command; });
    parser->add_option("--state", given.device.state, kStateHelp);
    return parser;
  };
  const auto store = [&given] { return readConfig(given.config); };
  auto* run = add("run", "Upload what is new or changed in a folder",
                  [&, store] { return runCommand(*given.folder, store(), given.retryAll); });
  run->add_option("FOLDER", given.folder, "The folder to back up")->required();
  run->add_flag("--retry-all", given.retryAll, "Also try what was given up after many retries");
  add("status", "Show how far everything is", statusCommand);
  auto* verify = add("verify", "Compare the records with what the store lists",
                     [&, store] { return verifyCommand(store(), given.repairs); });
  verify->add_flag("--repair", given.repairs,
                   "Let the next run send what is missing or changed; abort old uploads");
  auto* tag = add("tag", "Look at the photos that are backed up, for what they show",
                  [&] { return tagCommand(given.folder, given.again); });
  tag->add_option("FOLDER", given.folder, "Where the photos are, if not where they were");
  tag->add_flag("--again", given.again, "Also look at those looked at before");
  tag->add_option("--model", given.device.model, "An ONNX model's description (JSON file)");
  auto* search = add("search", "Find photos by a word or a part of one",
                     [&] { return searchCommand(given.text); });
  search->add_option("WORD", given.text, "In Italian, such as mare")->required();
  add("top", "Show the most frequent tags", topCommand);
  auto* tags = add("tags", "Show the tags of one photo", [&] { return tagsCommand(given.text); });
  tags->add_option("FILE", given.text, "Its name as `search` prints it")->required();
  auto* sync = add("sync", "Exchange tags with the user's other devices",
                   [store] { return syncCommand(store()); });
  auto* restore = add("restore", "Bring files back from the object store", [&, store] {
    return restoreCommand(*given.folder, store(), given.restoring);
  });
  restore->add_option("FOLDER", given.folder, "Where the files go")->required();
  restore->add_option("--only", given.restoring.only, "Names like this, such as '2024/*.jpg'")
      ->type_name("PATTERN");
  restore->add_option("--tag", given.restoring.tag, "Photos that show this, such as mare")
      ->type_name("WORD");
  restore->add_flag("--overwrite", given.restoring.overwrites, "Replace files that differ");
  for (auto* command : {run, restore}) {
    command->add_option("--limit", given.limit, "Bytes per second at most, such as 2MiB")
        ->transform(CLI::AsSizeValue(false))
        ->type_name("RATE");
  }
  for (auto* command : {run, verify, sync, restore}) {
    command->add_option("--config", given.config, "Where the object store is (JSON)")
        ->required()
        ->type_name("CONFIG");
    command
        ->add_option("--ca", given.device.authorities,
                     "Certificates (PEM) of authorities to trust besides the system's")
        ->type_name("FILE");
    command->footer(std::string(kConfigFooter) + kFooter);
  }
  for (auto* command : {tag, sync, restore}) {
    command->add_flag("--keyring", given.device.keyring,
                      "Keep the device's identity in the Secret Service; to be given with every "
                      "tag, sync and restore, or with none of them");
  }
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Backs a folder up to an S3 object store.", "orvane-backup");
  app.require_subcommand(0, 1);  // To demand one would say so of a mistyped one, too.
  app.footer(kFooter);           // The commands take it over.
  Arguments given;
  app.add_option("--state", given.device.state, kStateHelp);
  std::function<int()> command;
  addCommands(app, given, command);
  try {
    app.parse(argc, argv);
    if (!command) throw Refusal("which command? See --help");
    showFailures();
    prepare(given.device);
    if (given.limit > 0) {
      orvane::setRateLimits({.upload = given.limit, .download = given.limit});
    }
    return command();
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kSuccess : kUsage;
  } catch (const Refusal& refusal) {
    std::cerr << "orvane-backup: " << printable(refusal.what()) << '\n';
    return kUsage;
  } catch (const std::exception& error) {
    std::cerr << "orvane-backup: " << printable(error.what()) << '\n';
    return kSomethingFailed;
  }
}
