// What the lab's figure programs share: a lab with its daemons, elapsed time, events spread over
// the daemons' cycles, and the median/maximum line of a series.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "lab/lab.h"

namespace labfigures {

using Clock = std::chrono::steady_clock;

inline double Since(Clock::time_point t0) {
  return std::chrono::duration<double>(Clock::now() - t0).count();
}

// Waits a little over a whole number of seconds, so that consecutive events fall at different
// moments of the daemons' cycles.
inline void Stagger(int k) {
  std::this_thread::sleep_for(std::chrono::milliseconds(3000 + (k * 730) % 2000));
}

inline void Report(const std::string& what, std::vector<double> v, const char* unit = "s") {
  if (v.empty()) {
    std::printf("%s: no sample\n", what.c_str());
    return;
  }
  std::sort(v.begin(), v.end());
  size_t n = v.size();
  double median = n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
  std::printf("%s: median %.2f %s, max %.2f %s, min %.2f %s (%zu)\n", what.c_str(), median, unit,
              v.back(), unit, v.front(), unit, n);
}

// Brings lab up with a daemon on every host; false, after saying why, when it could not.
inline bool UpWithDaemons(qorlab::Lab& lab, const char* program) {
  Clock::time_point t0 = Clock::now();
  std::string err = lab.Up();
  if (err.empty()) err = lab.StartDaemons();
  if (!err.empty()) {
    std::fprintf(stderr, "%s: %s\n", program, err.c_str());
    return false;
  }
  std::printf("lab up and daemons started in %.1f s\n", Since(t0));
  return true;
}

// files files of size bytes in all under the master's qortemplates/name, random bytes each,
// a hundred to a folder.
inline void MakeTree(qorlab::Lab& lab, const std::string& name, int files, int64_t size) {
  std::mt19937_64 rnd(42);
  std::string root = lab.Host(0).dir() + "/qor/qortemplates/" + name;
  std::vector<char> buf(static_cast<size_t>(size / files));
  for (int f = 0; f < files; ++f) {
    std::string dir = root + "/d" + std::to_string(f / 100);
    std::filesystem::create_directories(dir);
    for (char& c : buf) c = static_cast<char>(rnd());
    std::ofstream(dir + "/f" + std::to_string(f) + ".tpl", std::ios::binary)
        .write(buf.data(), static_cast<std::streamsize>(buf.size()));
  }
}

}  // namespace labfigures
