#include "support/temp_dir.h"

#include "platform/text.h"
#include "platform/unicode_text.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace fs = std::filesystem;

namespace qr::test {

TempDir::TempDir() {
  std::string tmpl = (fs::temp_directory_path() / "ravelin-test-XXXXXX").string();
  if (mkdtemp(tmpl.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = tmpl;
}

TempDir::~TempDir() {
  std::error_code ec;
  // Give back any mode a test took away, so that the removal can reach everything.
  for (auto it = fs::recursive_directory_iterator(path_, fs::directory_options::skip_permission_denied, ec);
       !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
    if (it->is_directory(ec) && !it->is_symlink(ec)) {
      fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
    }
  }
  fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ec);
  fs::remove_all(path_, ec);
}

std::string TempDir::operator/(std::string_view relative) const {
  return path_ + "/" + std::string(relative);
}

std::string TempDir::WriteFile(std::string_view relative, std::string_view bytes) const {
  std::string p = *this / relative;
  fs::create_directories(fs::path(p).parent_path());
  std::ofstream out(p, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return p;
}

std::string TempDir::MakeDir(std::string_view relative) const {
  std::string p = *this / relative;
  fs::create_directories(p);
  return p;
}

std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string ReadBytesQuietly(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_NOATIME | O_CLOEXEC);
  std::string bytes;
  char buf[65536];
  ssize_t n = 0;
  while (fd >= 0 && (n = read(fd, buf, sizeof buf)) > 0) bytes.append(buf, static_cast<size_t>(n));
  return fd >= 0 && close(fd) == 0 ? bytes : std::string();
}

std::string Utf16FileText(const std::string& path) {
  std::string raw = ReadBytesQuietly(path);
  if (raw.size() < 2) return {};
  std::u16string text(reinterpret_cast<const char16_t*>(raw.data() + 2), (raw.size() - 2) / 2);
  return Utf16ToUtf8(text);
}

std::vector<std::string> Utf16FileLines(const std::string& path) {
  return SplitLines(Utf16FileText(path));
}

std::string Md5Of(const std::string& bytes) {
  unsigned char md[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  EVP_Digest(bytes.data(), bytes.size(), md, &n, EVP_md5(), nullptr);
  static const char kHex[] = "0123456789abcdef";
  std::string out;
  for (unsigned int i = 0; i < n; ++i) out += {kHex[md[i] >> 4], kHex[md[i] & 15]};
  return out;
}

void SetTimes(const std::string& path, struct timespec accessed, struct timespec modified,
              bool followLinks) {
  const struct timespec ts[2] = {accessed, modified};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), ts, followLinks ? 0 : AT_SYMLINK_NOFOLLOW), 0)
      << path;
}

}  // namespace qr::test
