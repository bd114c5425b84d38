#include "KXPublisher/transport/KXGzipUtility.h"

#include <zlib.h>

#include <memory>

#include "KXPublisher/diagnostics/KXLogError.h"

namespace kx {

namespace {

constexpr const char *operationName = "+[KXGzipUtility gzipData:]";

constexpr int windowBitsWithGzipWrapper = 15 + 16;
constexpr int memoryLevel = 8;

const char *messageForDeflateInit(int result) {
  switch (result) {
    case Z_VERSION_ERROR:
      return "The version of zlib.h and the version of the library linked do not match.";
    case Z_MEM_ERROR:
      return "Insufficient memory.";
    case Z_STREAM_ERROR:
      return "Invalid parameter passed in to function.";
    default:
      return "Unknown error code.";
  }
}

const char *messageForDeflate(int result) {
  switch (result) {
    case Z_VERSION_ERROR:
      return "The version of zlib.h and the version of the library linked do not match.";
    case Z_BUF_ERROR:
      return "Ran out of output buffer for writing compressed bytes.";
    case Z_MEM_ERROR:
      return "Memory could not be allocated for processing.";
    case Z_DATA_ERROR:
      return "The deflate data was invalid or incomplete.";
    case Z_STREAM_ERROR:
      return "The stream state was inconsistent (e.g., next_in or next_out was NULL).";
    case Z_ERRNO:
      return "Error occured while reading file.";
    default:
      return "Unknown error code.";
  }
}

}  // namespace

std::optional<Data> KXGzipUtility::gzipData(const std::optional<Data> &data) {
  if (!data || data->empty()) {
    KXLogError("%s: Error: Can't compress an empty or null NSData object.", {operationName});
    return std::nullopt;
  }

  z_stream stream{};
  stream.next_in = const_cast<Bytef *>(data->data());  // zlib only reads it
  stream.avail_in = static_cast<uInt>(data->size());
  int result = deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, windowBitsWithGzipWrapper,
                            memoryLevel, Z_DEFAULT_STRATEGY);
  if (result != Z_OK) {
    KXLogError(R"(%s: deflateInit2() Error: "%@" Message: "%s")",
               {operationName, messageForDeflateInit(result), static_cast<const char *>(stream.msg)});
    return std::nullopt;
  }
  const std::unique_ptr<z_stream, int (*)(z_stream *)> ending(&stream, &deflateEnd);
  // Sized once and never grown: an input that does not compress into it is refused. Made while zlib has its
  // memory, 260 KB, so that it lies above that on a heap that grows: zlib's next stream then finds the same
  // memory, where the system would have been given it back and asked for it again at each message of a burst.
  Data compressed(static_cast<std::size_t>(static_cast<double>(data->size()) * 1.01 + 12.0));
  do {
    stream.next_out = compressed.data() + stream.total_out;
    stream.avail_out = static_cast<uInt>(compressed.size() - stream.total_out);
    result = deflate(&stream, Z_FINISH);
  } while (result == Z_OK);
  if (result != Z_STREAM_END) {
    KXLogError(R"(%s: zlib error while attempting compression: "%@" Message: "%s")",
               {operationName, messageForDeflate(result), static_cast<const char *>(stream.msg)});
    return std::nullopt;
  }
  compressed.resize(stream.total_out);
  return compressed;
}

}  // namespace kx
