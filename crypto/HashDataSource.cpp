// Hashing a file through the file data source, kept apart from _btHash.cpp so that the
// digest code itself does not depend on the file layer.
#include "crypto/_btHash.h"
#include "support/FileSys.h"
#include "support/LogBase.h"

bool _btHash::hashDataSource(_btFileDataSource& source, int hashId, DataBuffer& out, LogBase& log) {
  LogContextExitor ctx(log, "hashDataSource");
  if (!source.isOpen()) {
    log.LogError("The data source is not open.");
    return false;
  }
  return hashChunks([&source](unsigned char* buf, size_t max, size_t& got) { return source.readChunk(buf, max, got); },
                    hashId, out, log);
}
