// What a run tells its user: figures of one file, one line per file of a
// batch, or all of it as JSON for scripts.
#pragma once

#include "larkspin/process_file.h"

#include <cstdio>
#include <vector>

namespace larkspin_tool {

void printFileSummary(std::FILE* out, const FileResult& result, bool aligned);
void printBatchSummary(std::FILE* out, const std::vector<FileResult>& results);
void printJsonSummary(std::FILE* out, const std::vector<FileResult>& results, bool aligned);

} // namespace larkspin_tool
