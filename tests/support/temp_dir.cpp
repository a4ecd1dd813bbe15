#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

namespace qortest {

TempDir::TempDir() {
  char tmpl[] = "/tmp/qortest.XXXXXX";
  char* made = mkdtemp(tmpl);
  if (made == nullptr) ADD_FAILURE() << "mkdtemp failed";
  path_ = made ? made : "/tmp";
}

TempDir::~TempDir() {
  std::error_code ec;
  if (path_ != "/tmp") std::filesystem::remove_all(path_, ec);
}

std::string TempDir::Write(const std::string& name, const std::string& content) const {
  std::string p = path_ + "/" + name;
  std::ofstream out(p, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  return p;
}

}  // namespace qortest
