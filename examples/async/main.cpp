// One operation of the engine, run in three ways: as a coroutine, as a future, with a callback.
//
// usage: orvane-async CONFIG       (the JSON file that orvane-backup takes)
#include <orvane/platform/base/Bytes.h>
#include <orvane/transport/S3Uploader.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/use_future.hpp>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <system_error>

namespace {

using orvane::Async;
using orvane::Result;
using orvane::S3Config;

Async<std::string> put(std::string key, std::string_view text, const S3Config& config) {
  const auto bytes = orvane::bytesOf(text);
  return orvane::S3Uploader::uploadData({bytes.begin(), bytes.end()}, std::move(key), "text/plain",
                                        config);
}

bool allWell = true;

/// A server's text must not steer the terminal.
std::string printable(std::string text) {
  std::ranges::replace_if(text, [](unsigned char c) { return c < ' ' || c > '~'; }, '?');
  return text;
}

void report(std::string_view how, const Result<std::string>& etag) {
  allWell = allWell && etag.has_value();
  std::cout << how << ": " << (etag ? "ETag " + printable(*etag) : etag.error().description())
            << '\n';
}

boost::asio::awaitable<void> asCoroutine(S3Config config) {
  report("coroutine", co_await put("async/coroutine.txt", "Hello", config));
}

}  // namespace

int main(int argc, char** argv) {
  const std::filesystem::path path(argc == 2 ? argv[1] : "");
  std::error_code ignored;
  std::ifstream file(is_directory(path, ignored) ? "" : path);
  const auto config = S3Config::fromJson(std::string(std::istreambuf_iterator(file), {}));
  if (!config || !config->isValid()) {
    std::cerr << "usage: orvane-async CONFIG\n";
    return 2;
  }
  boost::asio::io_context context;
  boost::asio::co_spawn(context, asCoroutine(*config), boost::asio::detached);
  auto future = boost::asio::co_spawn(context, put("async/future.txt", "Hello", *config),
                                      boost::asio::use_future);
  boost::asio::co_spawn(
      context, put("async/callback.txt", "Hello", *config),
      [](const std::exception_ptr&, const Result<std::string>& etag) { report("callback", etag); });
  context.run();  // One thread serves all three.
  report("future", future.get());
  return allWell ? 0 : 1;
}
