// A temporary directory for one test, removed with everything in it when the test ends.
#pragma once

#include <string>

namespace qorlab {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  // Writes content (bytes as given, NULs included) to name inside the directory; returns its path.
  std::string Write(const std::string& name, const std::string& content) const;

 private:
  std::string path_;
};

}  // namespace qorlab
