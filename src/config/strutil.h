// Text helpers of the configuration reader: key=value extraction and in-place trimming, case and
// number tests. All work in place on terminated texts and never allocate.
#pragma once

#include <cstddef>

#include "base/fixed_text.h"

namespace qor {

// Removes trailing, then leading, space characters (only ' '); returns how many were removed,
// -1 for a null text.
int StrTrim(char* text);
// Turns every newline into the terminator.
void StrTrimLf(char* text);
// StrTrim, then one trailing and one leading single quote when present; returns the number of
// quotes removed, -1 for a null text.
int StrTrimSq(char* text);
// The length of text when every character is a decimal digit, else 0 (0 for the empty text).
int IsNumber(const char* text);
char* StrToLower(char* text);
char* StrToUpper(char* text);

// The value of a key<sep>value line (sep 0 means '='): everything after the first sep, cut at the
// first newline, trimmed by StrTrimSq. Returns a pointer into line, which is modified; a line
// without sep gives the empty text.
char* GetValPtr(char* line, char sep);

// GetVal copies that value into out, cut at the field's capacity so it is never overrun.
template <size_t N>
void GetVal(FixedText<N>& out, char* line, char sep) {
  out.set(GetValPtr(line, sep));
}

// Cuts line at its first newline, then copies everything up to and including the first sep
// (0 means '=') into key and the rest into value; no trimming. Without sep all of it goes to key.
// Both outputs are cut at their capacity.
template <size_t K, size_t V>
void GetVal2(FixedText<K>& key, FixedText<V>& value, char* line, char sep);

}  // namespace qor

#include "config/strutil_impl.h"
