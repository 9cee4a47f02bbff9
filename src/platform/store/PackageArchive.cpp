#include "platform/store/PackageArchive.h"

#include <sys/stat.h>
#include <zip.h>

#include <QCryptographicHash>
#include <QFile>
#include <algorithm>
#include <fstream>
#include <memory>
#include <vector>

#include "platform/foundation/Log.h"

namespace platform {
namespace {

bool isSymbolicLink(zip_t* archive, zip_uint64_t index) {
  zip_uint8_t system = 0;
  zip_uint32_t attributes = 0;
  if (zip_file_get_external_attributes(archive, index, 0, &system, &attributes) != 0) return false;
  return system == ZIP_OPSYS_UNIX && ((attributes >> 16) & S_IFMT) == S_IFLNK;
}

// Why the entry name may not be unpacked, or empty.
std::string refusal(const std::string& name) {
  if (name.empty()) return "an entry without a name";
  const std::string quoted = "the entry \"" + printable(name, 80) + "\"";
  if (name.front() == '/' || name.find('\\') != std::string::npos)
    return quoted + " is absolute or uses backslashes";
  for (const auto& part : std::filesystem::path(name))
    if (part == "..") return quoted + " leaves the package";
  return {};
}

std::string unpackInto(zip_t* archive, const std::filesystem::path& folder,
                       const UnpackLimits& limits) {
  const zip_int64_t count = zip_get_num_entries(archive, 0);
  if (count < 0 || static_cast<std::uint64_t>(count) > limits.entries)
    return "more than " + std::to_string(limits.entries) + " entries";
  // Every name and declared size is checked before anything is written.
  std::uint64_t declared = 0;
  for (zip_int64_t i = 0; i < count; ++i) {
    const char* name = zip_get_name(archive, static_cast<zip_uint64_t>(i), 0);
    if (!name) return "an unreadable entry name";
    if (auto why = refusal(name); !why.empty()) return why;
    if (isSymbolicLink(archive, static_cast<zip_uint64_t>(i)))
      return "the entry \"" + printable(name, 80) + "\" is a link";
    zip_stat_t stat;
    zip_stat_init(&stat);
    if (zip_stat_index(archive, static_cast<zip_uint64_t>(i), 0, &stat) != 0 ||
        !(stat.valid & ZIP_STAT_SIZE))
      return "an entry of unknown size";
    declared += stat.size;
    if (stat.size > limits.entryBytes || declared > limits.totalBytes)
      return "it unpacks to more than its limits";
  }
  std::uint64_t written = 0;
  std::vector<char> buffer(64 * 1024);
  for (zip_int64_t i = 0; i < count; ++i) {
    const std::string name = zip_get_name(archive, static_cast<zip_uint64_t>(i), 0);
    const auto target = folder / name;
    std::error_code error;
    if (name.back() == '/') {
      std::filesystem::create_directories(target, error);
      if (error) return "cannot create " + printable(target.string());
      continue;
    }
    std::filesystem::create_directories(target.parent_path(), error);
    std::unique_ptr<zip_file_t, decltype(&zip_fclose)> in(
        zip_fopen_index(archive, static_cast<zip_uint64_t>(i), 0), zip_fclose);
    if (!in) return "cannot read the entry \"" + printable(name, 80) + "\"";
    std::ofstream out(target, std::ios::binary);
    if (!out) return "cannot write " + printable(target.string());
    zip_int64_t read = 0;
    std::uint64_t entryWritten = 0;
    while ((read = zip_fread(in.get(), buffer.data(), buffer.size())) > 0) {
      // The sizes were checked as declared; the bytes are counted as they come, too.
      entryWritten += static_cast<std::uint64_t>(read);
      written += static_cast<std::uint64_t>(read);
      if (entryWritten > limits.entryBytes || written > limits.totalBytes)
        return "it unpacks to more than its limits";
      out.write(buffer.data(), read);
    }
    if (read < 0) return "the entry \"" + printable(name, 80) + "\" is damaged";
    if (!out.flush()) return "cannot write " + printable(target.string());
  }
  return {};
}

}  // namespace

UnpackLimits UnpackLimits::forPackageOf(std::uint64_t packageSize) {
  constexpr std::uint64_t kTotal = 256ull << 20, kEntry = 64ull << 20;
  const std::uint64_t total = packageSize > kTotal / 20 ? kTotal : packageSize * 20;
  return {total, std::min(total, kEntry), 4096};
}

std::string unpackPackage(const std::filesystem::path& archivePath,
                          const std::filesystem::path& folder, const UnpackLimits& limits) {
  int code = 0;
  zip_t* archive = zip_open(archivePath.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &code);
  if (!archive) return "not a zip archive";
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
  std::filesystem::create_directories(folder, ignored);
  std::string error = unpackInto(archive, folder, limits);
  zip_discard(archive);
  if (!error.empty()) std::filesystem::remove_all(folder, ignored);
  return error;
}

std::string sha256OfFile(const std::filesystem::path& file) {
  QFile in(QString::fromStdString(file.string()));
  if (!in.open(QIODevice::ReadOnly)) return {};
  QCryptographicHash hash(QCryptographicHash::Sha256);
  if (!hash.addData(&in)) return {};
  return hash.result().toHex().toStdString();
}

}  // namespace platform
