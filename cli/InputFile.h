// The one reader of every command's inputs: a whole file read as a stream, so that pipes,
// FIFOs, /dev/stdin and "-" (standard input) are read like regular files.
#pragma once

#include <string>

namespace cli {

// Replaces bytes with the whole input. False with a one-line reason naming the path for
// an input that cannot be opened, is a directory, or fails while being read.
bool readInput(const std::string& path, std::string& bytes, std::string& error);

}  // namespace cli
