#pragma once

// Bank catalogs on disk for the shop's tests: zip packages made with libzip (with links and
// escaping names when a test needs them) and catalog.json written beside them.

#include <sys/stat.h>
#include <zip.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/store/PackageArchive.h"
#include "support/BankText.h"
#include "support/CatalogServer.h"

namespace testing_support {

struct ZipEntry {
  std::string name;
  std::string data;
  bool symbolicLink = false;  // `data` is the link's target
};

inline bool writeZip(const std::filesystem::path& path, const std::vector<ZipEntry>& entries) {
  int error = 0;
  zip_t* archive = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
  if (!archive) return false;
  for (const ZipEntry& entry : entries) {
    zip_source_t* source = zip_source_buffer(archive, entry.data.data(), entry.data.size(), 0);
    const zip_int64_t index = zip_file_add(archive, entry.name.c_str(), source, ZIP_FL_ENC_UTF_8);
    if (index < 0) return false;
    const zip_uint32_t mode = entry.symbolicLink ? (S_IFLNK | 0777) : (S_IFREG | 0644);
    zip_file_set_external_attributes(archive, static_cast<zip_uint64_t>(index), 0, ZIP_OPSYS_UNIX,
                                     mode << 16);
  }
  return zip_close(archive) == 0;
}

inline std::string contentInfo(const std::vector<std::string>& files) {
  std::string plist =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>Files</key>"
      "<array>";
  for (const auto& file : files)
    plist += "<string>" + file + "</string>";
  return plist + "</array></dict></plist>\n";
}

struct CatalogEntry {
  std::string identifier;
  std::string title;
  std::string price;
  std::string priceLocale;
  std::string package;  // zip file name in the folder
  bool free = false;
  std::string descriptionDe = {};  // a German description besides the default one, when set
  std::string urlPrefix = {};      // put before the package name in the catalog ("stall/", ...)
};

// catalog.json for `entries`, with each package's real size and SHA-256.
inline void writeCatalog(const std::filesystem::path& folder,
                         const std::vector<CatalogEntry>& entries) {
  std::string json = "{\"products\": [";
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const auto& entry = entries[i];
    const auto package = folder / entry.package;
    std::error_code error;
    const auto size = std::filesystem::file_size(package, error);
    json += (i ? "," : "") + std::string("{\"identifier\": \"") + entry.identifier +
            "\", \"title\": {\"default\": \"" + entry.title +
            "\"}, \"description\": {\"default\": \"About " + entry.title + "\"" +
            (entry.descriptionDe.empty() ? "" : ", \"de\": \"" + entry.descriptionDe + "\"") +
            "}, \"price\": \"" + entry.price + "\", \"priceLocale\": \"" + entry.priceLocale +
            "\", \"free\": " + (entry.free ? "true" : "false") + ", \"package\": {\"url\": \"" +
            entry.urlPrefix + entry.package + "\", \"size\": " + std::to_string(error ? 0 : size) +
            ", \"sha256\": \"" + (error ? std::string(64, '0') : platform::sha256OfFile(package)) +
            "\"}}";
  }
  std::ofstream(folder / "catalog.json") << json << "]}\n";
}

}  // namespace testing_support
