#pragma once

#include <orvane/Error.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace orvane {

class ImageClassifier;
class SecureStore;

/// What a host may say about itself before it uses the engine.
struct HostOptions {
  /// Reverse-DNS name of the application: the name of its data folder and the prefix of queue
  /// labels. Letters, digits, ".", "-" and "_"; not empty, not beginning with ".".
  std::string identifier = "org.orvane.engine";

  /// The application's own data folder. Left out: `$XDG_DATA_HOME/identifier`, or
  /// `$HOME/.local/share/identifier`; where neither variable holds an absolute path there is no
  /// folder, and the stores keep everything in memory only.
  std::optional<std::filesystem::path> dataDirectory = {};

  /// A PEM file with the certificates of further authorities (a company's, a home server's) that
  /// may vouch for servers and proxies, besides the system's. Read once, by `configure`.
  std::optional<std::filesystem::path> certificateAuthorities = {};

  /// Where the device's identity is kept. Left out: a `FileSecureStore` in the data folder.
  /// Changing it between two starts of the application gives the device a second identity.
  std::shared_ptr<SecureStore> secureStore = {};

  /// What looks at images. Left out: the built-in `SceneClassifier`.
  std::shared_ptr<const ImageClassifier> imageClassifier = {};

  /// The folder of what the library starts or loads only when it is needed. Left out: that of the
  /// library's own build or installation. It holds the program that decodes images for both of the
  /// library's classifiers, `orvane-image-worker`, and the modules behind `OnnxClassifier` and
  /// `SecretServiceStore`. The program is started where a thread classifies its first image; it is
  /// a child process like any other, so a host must not wait for children that it has not started.
  std::optional<std::filesystem::path> helperFolder = {};
};

/// The application that links the engine: who it is, and where it keeps its files.
///
/// Any thread may call these. The first use of a folder, an identifier, the secure store or the
/// image classifier fixes the options. HTTP requests and image workers do not: `configure` is to
/// come before them as well, since those under way by then keep to the former options.
class HostApplication {
 public:
  HostApplication() = delete;

  /// Sets the options. Optional; once, before the first use of the engine. Fails with the domain
  /// "HostApplication" when the options are already fixed (code 1), when the identifier is
  /// malformed (code 2), when the data folder is not an absolute path (code 3), when the file of
  /// authorities cannot be read or holds no certificate (code 4) or when the helper folder is not
  /// an absolute path (code 5).
  [[nodiscard]] static Result<void> configure(HostOptions options);

  [[nodiscard]] static const std::string& identifier();

  /// The application's own data folder. Absent when the options name none and the environment does
  /// not lead to one. The folder need not exist yet.
  [[nodiscard]] static std::optional<std::filesystem::path> dataDirectory();

  /// Where stores keep files that the user does not see: "Application Support" in the data folder.
  /// Absent when there is no data folder. The folder need not exist yet.
  [[nodiscard]] static std::optional<std::filesystem::path> applicationSupportDirectory();

  /// Where `FileSecureStore` keeps its items: "Secrets" in the data folder; as above.
  [[nodiscard]] static std::optional<std::filesystem::path> secretsDirectory();

  /// Where the user's own data lies: "Documents" in the data folder; as above.
  [[nodiscard]] static std::optional<std::filesystem::path> documentsDirectory();

  /// The secure store in force: the options' one, or a `FileSecureStore`. It lives as long as the
  /// process.
  [[nodiscard]] static SecureStore& secureStore();

  /// The image classifier in force: the options' one, or a `SceneClassifier`. It lives as long as
  /// the process.
  [[nodiscard]] static const ImageClassifier& imageClassifier();
};

}  // namespace orvane
