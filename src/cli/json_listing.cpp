#include "cli/json_listing.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>

namespace qor {

namespace {

void AppendKey(std::string& out, const char* key) {
  if (out.back() != '{') out += ',';
  out += '"';
  out += key;
  out += "\":";
}

void Field(std::string& out, const char* key, int64_t value) {
  char text[32];
  std::snprintf(text, sizeof text, "%" PRId64, value);
  AppendKey(out, key);
  out += text;
}

// A value the database could not have given (not finite) is null rather than invalid JSON.
void Field(std::string& out, const char* key, double value) {
  char text[64] = "null";
  if (std::isfinite(value)) std::snprintf(text, sizeof text, "%.15g", value);
  AppendKey(out, key);
  out += text;
}

void Field(std::string& out, const char* key, const ClustText& value) {
  AppendKey(out, key);
  AppendJsonString(out, value.c_str());
}

// The length of the well-formed UTF-8 sequence at p (RFC 3629: no overlong forms, no surrogates,
// nothing above U+10FFFF), or 0 when p starts none.
int Utf8Length(const unsigned char* p) {
  int n = 0;
  unsigned char lo = 0x80, hi = 0xbf;
  if (p[0] >= 0xc2 && p[0] <= 0xdf) {
    n = 2;
  } else if (p[0] >= 0xe0 && p[0] <= 0xef) {
    n = 3;
    if (p[0] == 0xe0) lo = 0xa0;
    if (p[0] == 0xed) hi = 0x9f;
  } else if (p[0] >= 0xf0 && p[0] <= 0xf4) {
    n = 4;
    if (p[0] == 0xf0) lo = 0x90;
    if (p[0] == 0xf4) hi = 0x8f;
  } else {
    return 0;
  }
  if (p[1] < lo || p[1] > hi) return 0;
  for (int i = 2; i < n; ++i) {
    if (p[i] < 0x80 || p[i] > 0xbf) return 0;
  }
  return n;
}

}  // namespace

void AppendJsonString(std::string& out, const char* text) {
  out += '"';
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; ++p) {
    if (*p == '"' || *p == '\\') {
      out += '\\';
      out += static_cast<char>(*p);
    } else if (*p < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", *p);
      out += escape;
    } else if (*p < 0x80) {
      out += static_cast<char>(*p);
    } else if (int n = Utf8Length(p); n > 0) {
      out.append(reinterpret_cast<const char*>(p), static_cast<size_t>(n));
      p += n - 1;
    } else {
      // JSON is UTF-8: a byte that starts no character (another encoding, a text cut in the
      // middle of one) becomes the replacement character, as a UTF-8 decoder shows it.
      out += "\\ufffd";
    }
  }
  out += '"';
}

void AppendRowJson(std::string& out, const ClustRecord& r, int64_t now) {
  out += '{';
  Field(out, "id", int64_t{r.id});
  Field(out, "hostname", r.hostname);
  Field(out, "ipaddress", r.ipaddress);
  Field(out, "clusterid", r.clusterid);
  Field(out, "role", r.role);
  Field(out, "role_id", int64_t{r.role_id});
  Field(out, "status", int64_t{r.status});
  Field(out, "dbwrite_count", r.dbwrite_count);
  Field(out, "last_writemill", r.last_writemill);
  Field(out, "tpl_updatemill", r.tpl_updatemill);
  Field(out, "tpl_syncmill", r.tpl_syncmill);
  Field(out, "tpl_syncstate", int64_t{r.tpl_syncstate});
  Field(out, "cpuinfo", r.cpuinfo);
  Field(out, "cpus", int64_t{r.cpus});
  Field(out, "cpuphycores", int64_t{r.cpuphycores});
  Field(out, "cpucores", int64_t{r.cpucores});
  Field(out, "cpuprocs", int64_t{r.cpuprocs});
  Field(out, "cpuloadavg", r.cpuloadavg);
  Field(out, "cpuloadavgpp", r.cpuloadavgpp);
  Field(out, "containers", int64_t{r.containers});
  Field(out, "cpuutil", r.cpuutil);
  Field(out, "memutil", r.memutil);
  Field(out, "diskutil", r.diskutil);
  Field(out, "qorver", r.qorver);
  Field(out, "updated_at", r.updated_at);
  Field(out, "qortimemill", r.qortimemill);
  Field(out, "age_seconds", now - r.updated_at);
  out += '}';
}

void AppendDatabaseJson(std::string& out, const char* name, const char* address, bool answers,
                        bool read, ClustRecord* const* rows, int count, int64_t now) {
  out += "{\"database\":";
  AppendJsonString(out, name);
  out += ",\"address\":";
  AppendJsonString(out, address);
  out += answers ? ",\"answers\":true" : ",\"answers\":false";
  out += read ? ",\"read\":true,\"rows\":[" : ",\"read\":false,\"rows\":[";
  for (int i = 0; i < count; ++i) {
    if (i > 0) out += ',';
    out += '\n';
    AppendRowJson(out, *rows[i], now);
  }
  out += "]}";
}

}  // namespace qor
