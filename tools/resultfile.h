#pragma once

// Results of studies in files: a few lines of text that say what was described and which cases were
// used, an empty line, and the bytes of the sums as velmor saves them.
//
//   describe 1
//   variables,"ozone","wind"
//   with,"temp"                 names follow where there are any
//   missing,"listwise"
//   weight
//   regression weight
//   cases,153,37,0              read, left out as incomplete, left out for a weight of 0
//   check,4be1e11da8d5a7f4      of the lines above, by FNV-1a with 64 bits
//
// Equal results of equal subjects make equal files.

#include <string>
#include <vector>

#include "result.h"

namespace study {

// Writes a file, under another name until it is complete and on the disk: a file of that name is
// there as a whole or as it was before, also after the machine has stopped. One that was there
// before keeps its mode. Throws csv::Error when it can't be written, as when one that is there may
// not be.
void Save(const Result& result, const std::string& path);

// Merges what was saved in the files, in their order. Takes memory in proportion to the size of the
// files, whatever is in them. Throws csv::Error, which names the file and what is wrong, when one
// can't be read, has not been written by Save, has been changed or cut, or is not of the first
// one's subject; std::length_error when there are more cases than an accumulator can count.
Result Load(const std::vector<std::string>& paths);

}  // namespace study
