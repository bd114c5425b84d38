#include "tools/collector/GzipMember.h"

#include <libdeflate.h>
#include <zlib.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "tools/collector/Refusal.h"

namespace kx::collector {

namespace {

constexpr int windowBitsWithGzipWrapper = 15 + 16;
constexpr std::size_t flagsOffset = 3;

/// For one body after the other: what zlib needs for one, some 40 kB, takes longer to get than most bodies to
/// unpack.
class Inflater {
 public:
  Inflater() {
    if (inflateInit2(&stream_, windowBitsWithGzipWrapper) != Z_OK) throw std::bad_alloc();
  }
  ~Inflater() { inflateEnd(&stream_); }
  Inflater(const Inflater &) = delete;
  Inflater &operator=(const Inflater &) = delete;

  /// As new.
  z_stream &stream() {
    inflateReset(&stream_);
    return stream_;
  }

 private:
  z_stream stream_{};
};

struct Freer {
  void operator()(libdeflate_decompressor *decompressor) const { libdeflate_free_decompressor(decompressor); }
};

/// In less time than zlib takes; absent when this is not a plain member of that size at most, and nothing
/// else. Then it is left to zlib, which knows why, and where.
std::optional<std::string> unpackQuickly(const std::string &body, std::size_t maximumSize) {
  constexpr std::size_t smallest = 18;  // header and trailer
  // Name, comment and the like, whose checksum would not be checked.
  if (body.size() < smallest || body[flagsOffset] != 0) return std::nullopt;
  // How long the text is stands at the end.
  std::uint32_t size = 0;
  for (std::size_t at = 0; at < sizeof size; ++at) {
    size |= std::uint32_t{static_cast<unsigned char>(body[body.size() - sizeof size + at])} << (8 * at);
  }
  if (size > maximumSize) return std::nullopt;
  thread_local const std::unique_ptr<libdeflate_decompressor, Freer> decompressor(
      libdeflate_alloc_decompressor());
  if (decompressor == nullptr) return std::nullopt;
  std::string text(size, '\0');
  std::size_t taken = 0;
  const auto result = libdeflate_gzip_decompress_ex(decompressor.get(), body.data(), body.size(), text.data(),
                                                    text.size(), &taken, nullptr);
  if (result != LIBDEFLATE_SUCCESS || taken != body.size()) return std::nullopt;
  return text;
}

[[noreturn]] void refuse(int result, const z_stream &stream) {
  const Subject here{Subject::Part::bytes, {stream.total_in, stream.avail_in == 0 ? 0u : 1u}};
  if (result == Z_BUF_ERROR) throw Refusal(400, "the gzip member in the body is cut off", here);
  const std::string detail = stream.msg == nullptr ? "" : std::string(" (") + stream.msg + ")";
  throw Refusal(400, "the body is not a gzip member" + detail, here);
}

}  // namespace

std::string unpackGzipMember(const std::string &body, std::size_t maximumSize) {
  if (body.empty()) throw Refusal(400, "the body is empty");
  if (auto text = unpackQuickly(body, maximumSize)) return std::move(*text);
  thread_local Inflater inflater;
  z_stream &stream = inflater.stream();
  stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(body.data()));  // zlib only reads it
  stream.avail_in = static_cast<uInt>(body.size());

  std::string unpacked;
  std::array<char, 16384> chunk;
  int result = Z_OK;
  while (result != Z_STREAM_END) {
    stream.next_out = reinterpret_cast<Bytef *>(chunk.data());
    stream.avail_out = static_cast<uInt>(chunk.size());
    result = inflate(&stream, Z_NO_FLUSH);
    if (result != Z_OK && result != Z_STREAM_END) refuse(result, stream);
    unpacked.append(chunk.data(), chunk.size() - stream.avail_out);
    if (unpacked.size() > maximumSize) {
      throw Refusal(413, "the body unpacks to more than " + std::to_string(maximumSize) + " bytes");
    }
  }
  if (stream.avail_in != 0) {
    throw Refusal(
        400, "the gzip member in the body is followed by " + std::to_string(stream.avail_in) + " more bytes",
        {Subject::Part::bytes, {stream.total_in, stream.avail_in}});
  }
  return unpacked;
}

}  // namespace kx::collector
