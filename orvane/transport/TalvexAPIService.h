#pragma once

#include <orvane/Error.h>
#include <orvane/transport/S3Config.h>

#include <string>
#include <string_view>
#include <vector>

namespace orvane {

/// An object in the bucket as a listing names it.
struct KeyETagPair {
  std::string key;   ///< As written in the response: the entity references of XML (&amp;) are kept.
  std::string eTag;  ///< Without quotes; empty when the response names none.

  friend bool operator==(const KeyETagPair&, const KeyETagPair&) = default;
};

/// Lists what is in the bucket. Holds no state: any number of threads and processes may list at the
/// same time, a child that was forked without exec may not.
///
///     const auto objects = TalvexAPIService::shared().listObjects(config, "media/");
class TalvexAPIService {
 public:
  /// The domain of the errors that are the service's own.
  static constexpr std::string_view kDomain = "TalvexAPIService";

  [[nodiscard]] static TalvexAPIService& shared();

  TalvexAPIService(const TalvexAPIService&) = delete;
  TalvexAPIService& operator=(const TalvexAPIService&) = delete;

  /// Every object whose key begins with `prefix`, in the order in which the store names them. The
  /// prefix counts as it is: that of the configuration is not put before it.
  ///
  /// Blocks until the last page is there, a thousand objects to a page; callable from any thread,
  /// callbacks included. Each page is held in memory as text while it is read; one of more than
  /// 64 MiB fails with dataLengthExceedsMaximum (-1103). Nothing is retried, and a listing that
  /// fails halfway yields nothing. The store decides when it ends: with one that names a further
  /// page each time, a token it has given before included, the list grows as long as memory lasts.
  ///
  /// Errors: `Error::kUrlLoading` with badURL (-1000) when the configuration makes no URL, and
  /// whatever the HTTP client reports. Of the domain `kDomain`: the status as code when that is 300
  /// or more ("ListObjects HTTP 403: " and the first MiB of the response's body), and -1 ("Invalid
  /// response encoding") when a response is not UTF-8. Entries that cannot be made out are left
  /// out.
  [[nodiscard]] Result<std::vector<KeyETagPair>> listObjects(const S3Config& config,
                                                             std::string_view prefix);

 private:
  TalvexAPIService() = default;
};

}  // namespace orvane
