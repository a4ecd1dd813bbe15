#include "config/strutil.h"

#include <cctype>
#include <cstring>

namespace qor {

int StrTrim(char* text) {
  if (text == nullptr) return -1;
  size_t len = std::strlen(text);
  size_t end = len;
  while (end > 0 && text[end - 1] == ' ') --end;
  text[end] = '\0';
  size_t start = 0;
  while (start < end && text[start] == ' ') ++start;
  if (start > 0) std::memmove(text, text + start, end - start + 1);
  return static_cast<int>(len - (end - start));
}

void StrTrimLf(char* text) {
  if (text == nullptr) return;
  for (char* p = text; *p; ++p) {
    if (*p == '\n') *p = '\0';
  }
}

int StrTrimSq(char* text) {
  if (text == nullptr) return -1;
  StrTrim(text);
  int removed = 0;
  size_t len = std::strlen(text);
  if (len > 0 && text[len - 1] == '\'') {
    text[--len] = '\0';
    ++removed;
  }
  if (len > 0 && text[0] == '\'') {
    std::memmove(text, text + 1, len);
    ++removed;
  }
  return removed;
}

int IsNumber(const char* text) {
  if (text == nullptr) return 0;
  int n = 0;
  for (const char* p = text; *p; ++p, ++n) {
    if (!std::isdigit(static_cast<unsigned char>(*p))) return 0;
  }
  return n;
}

char* StrToLower(char* text) {
  for (char* p = text; p && *p; ++p)
    *p = static_cast<char>(std::tolower(static_cast<unsigned char>(*p)));
  return text;
}

char* StrToUpper(char* text) {
  for (char* p = text; p && *p; ++p)
    *p = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
  return text;
}

char* GetValPtr(char* line, char sep) {
  char* nl = std::strchr(line, '\n');
  if (nl != nullptr) *nl = '\0';
  char* at = std::strchr(line, sep == '\0' ? '=' : sep);
  if (at == nullptr) return line + std::strlen(line);
  char* value = at + 1;
  StrTrimSq(value);
  return value;
}

}  // namespace qor
