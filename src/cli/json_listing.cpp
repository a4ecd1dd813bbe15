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
    } else {
      // Bytes above 127 pass as they are: the table's texts are what the database holds, and a
      // reader that wants strict UTF-8 sees exactly those bytes.
      out += static_cast<char>(*p);
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
                        ClustRecord* const* rows, int count, int64_t now) {
  out += "{\"database\":";
  AppendJsonString(out, name);
  out += ",\"address\":";
  AppendJsonString(out, address);
  out += answers ? ",\"answers\":true,\"rows\":[" : ",\"answers\":false,\"rows\":[";
  for (int i = 0; i < count; ++i) {
    if (i > 0) out += ',';
    out += '\n';
    AppendRowJson(out, *rows[i], now);
  }
  out += "]}";
}

}  // namespace qor
