// A host that chooses where the engine keeps its files, whose certificates it trusts, and where the
// device's identity lies; it prints what came of it.
//
// usage: orvane-settings FOLDER [AUTHORITIES]     a folder, and a PEM file
#include <orvane/bookkeeping/DeviceUUID.h>
#include <orvane/platform/host/HostApplication.h>
#include <orvane/platform/secrets/FileSecureStore.h>

#include <filesystem>
#include <iostream>
#include <memory>

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: orvane-settings FOLDER [AUTHORITIES]\n";
    return 2;
  }
  const auto folder = std::filesystem::absolute(argv[1]);
  orvane::HostOptions options{.identifier = "org.orvane.settings"};
  options.dataDirectory = folder / "data";
  // Hosts for desktops may prefer SecretServiceStore, and tell their users about it.
  options.secureStore = std::make_shared<orvane::FileSecureStore>(folder / "identity");
  if (argc > 2) options.certificateAuthorities = argv[2];
  if (const auto set = orvane::HostApplication::configure(options); !set) {
    std::cerr << set.error().description() << '\n';
    return 1;
  }
  std::cout << "records: " << orvane::HostApplication::applicationSupportDirectory()->string()
            << "\ntags: " << orvane::HostApplication::documentsDirectory()->string()
            << "\nidentity: " << orvane::DeviceUUID::shared().uuid() << '\n';
}
