#include <zlib.h>

#include "KXPublisher/diagnostics/KXLog.h"
#include "KXPublisher/transport/KXGzipUtility.h"
#include "tests/fuzz/Fuzzing.h"

// What is compressed unpacks to the same, as one member; and there is nothing where it would not fit.

namespace {

/// What zlib makes of a gzip member with nothing behind it.
kx::Data unpacked(const kx::Data &member, std::size_t size) {
  z_stream stream{};
  stream.next_in = const_cast<Bytef *>(member.data());
  stream.avail_in = static_cast<uInt>(member.size());
  kx::require(inflateInit2(&stream, 15 + 16) == Z_OK, "zlib has memory");
  kx::Data bytes(size + 1);
  stream.next_out = bytes.data();
  stream.avail_out = static_cast<uInt>(bytes.size());
  kx::require(inflate(&stream, Z_FINISH) == Z_STREAM_END, "it is a whole member");
  kx::require(stream.avail_in == 0, "nothing is behind it");
  bytes.resize(stream.total_out);
  inflateEnd(&stream);
  return bytes;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  const kx::Data input(bytes, bytes + size);
  const auto member = kx::KXGzipUtility::gzipData(input);
  if (!member) {
    // 18 bytes are the wrapper's; and what cannot be compressed grows by 5 for each block.
    kx::require(
        size == 0 || static_cast<double>(size) * 0.01 < 18 + 5 + 5 * static_cast<double>(size) / 16384,
        "what has room for its wrapper is compressed");
    return 0;
  }
  kx::require(static_cast<double>(member->size()) <= static_cast<double>(size) * 1.01 + 12,
              "it keeps its bound");
  kx::require(unpacked(*member, size) == input, "it unpacks to the input");
  return 0;
}
