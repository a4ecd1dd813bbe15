#include "lab/temp_dir.h"

#include <stdlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace qorlab {

TempDir::TempDir() {
  char tmpl[] = "/tmp/qortest.XXXXXX";
  char* made = mkdtemp(tmpl);
  // Without a directory of its own nothing here can run without touching shared places.
  if (made == nullptr) {
    std::perror("mkdtemp /tmp/qortest.XXXXXX");
    std::exit(1);
  }
  path_ = made;
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

std::string TempDir::Write(const std::string& name, const std::string& content) const {
  std::string p = path_ + "/" + name;
  std::ofstream out(p, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  return p;
}

}  // namespace qorlab
