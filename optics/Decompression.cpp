//===- Decompression.cpp - Compressed track files, streamed ----------------===//

#include "Decompression.h"

#include <algorithm>
#include <cstring>
#include <lzma.h>
#include <memory>
#include <vector>
#include <zlib.h>
#include <zstd.h>

namespace {

struct Magic {
  Compression compression;
  const char *bytes;
  size_t size;
};

const Magic Magics[] = {
    {Compression::Zstd, "\x28\xb5\x2f\xfd", 4},
    {Compression::Gzip, "\x1f\x8b", 2},
    {Compression::Xz,
     "\xfd"
     "7zXZ\0",
     6},
};

/// Bytes decoded at a time.
const size_t OutputBytes = 128 * 1024;

/// The compressed bytes are handed to a decoder in blocks of this size.
const size_t InputBlock = 16 * 1024;

/// The input in blocks of InputBlock bytes (the last one shorter), however its pieces
/// fall (a pipe's short reads, a head read apart): the decoder sees the same blocks, and
/// names the same byte when it stops, for every reading of one file.
class BlockInput {
public:
  explicit BlockInput(const CompressedInput &input) : input(input) {}

  bool operator()(const char *&data, size_t &size) {
    if (left == 0 && !fetch())
      return false;
    if (left >= InputBlock) { // the whole block lies in the piece
      data = piece;
      size = InputBlock;
      take(InputBlock);
      return true;
    }
    size_t filled = 0;
    while (filled < InputBlock && (left > 0 || fetch())) {
      const size_t part = std::min(left, InputBlock - filled);
      memcpy(staged + filled, piece, part);
      take(part);
      filled += part;
    }
    data = staged;
    size = filled;
    return true;
  }

private:
  const CompressedInput &input;
  const char *piece = nullptr;
  size_t left = 0;         ///< bytes of the piece not yet handed on
  char staged[InputBlock]; ///< a block gathered from several pieces

  /// The next piece that holds bytes; false at the end.
  bool fetch() {
    while (left == 0)
      if (!input(piece, left))
        return false;
    return true;
  }
  void take(size_t count) {
    piece += count;
    left -= count;
  }
};

DecodeError corrupt(Compression compression, long long offset, const QString &reason) {
  return {QString("corrupt %1 data at byte %2 (%3)")
              .arg(compressionName(compression))
              .arg(offset)
              .arg(reason)};
}

DecodeError truncated(Compression compression, long long size) {
  return {QString("truncated %1 data (the file ends at byte %2, inside a compressed stream)")
              .arg(compressionName(compression))
              .arg(size)};
}

/// zstd: frame after frame; the decoder keeps the last byte of a frame until it has
/// given every decoded byte of it, so a consumed piece leaves nothing behind but an
/// unfinished frame.
void decompressZstd(const CompressedInput &input, const DecodedOutput &output) {
  std::unique_ptr<ZSTD_DCtx, size_t (*)(ZSTD_DCtx *)> context(ZSTD_createDCtx(), ZSTD_freeDCtx);
  std::vector<char> decoded(OutputBytes);
  long long before = 0;
  size_t frameLeft = 0; // 0 once the last frame is complete
  const char *data;
  size_t size;
  while (input(data, size)) {
    ZSTD_inBuffer in{data, size, 0};
    while (in.pos < in.size) {
      ZSTD_outBuffer out{decoded.data(), decoded.size(), 0};
      frameLeft = ZSTD_decompressStream(context.get(), &out, &in);
      if (ZSTD_isError(frameLeft))
        throw corrupt(Compression::Zstd, before + (long long)in.pos, ZSTD_getErrorName(frameLeft));
      if (out.pos > 0 && !output(decoded.data(), out.pos))
        return;
    }
    before += (long long)size;
  }
  if (frameLeft != 0)
    throw truncated(Compression::Zstd, before);
}

/// gzip: member after member (a new one may follow the end of the last).
void decompressGzip(const CompressedInput &input, const DecodedOutput &output) {
  z_stream stream{};
  if (inflateInit2(&stream, 16 + MAX_WBITS) != Z_OK)
    throw DecodeError{"cannot start the gzip decoder"};
  std::unique_ptr<z_stream, int (*)(z_stream *)> owner(&stream, inflateEnd);
  std::vector<unsigned char> decoded(OutputBytes);
  long long before = 0;
  bool inMember = true;
  const char *data;
  size_t size;
  while (input(data, size)) {
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(data));
    stream.avail_in = uInt(size);
    for (;;) {
      if (!inMember) {
        if (stream.avail_in == 0)
          break;
        inflateReset(&stream);
        inMember = true;
      }
      stream.next_out = decoded.data();
      stream.avail_out = uInt(decoded.size());
      int status = inflate(&stream, Z_NO_FLUSH);
      if (status == Z_STREAM_END)
        inMember = false;
      else if (status != Z_OK && status != Z_BUF_ERROR)
        throw corrupt(Compression::Gzip, before + (long long)(size - stream.avail_in),
                      stream.msg ? stream.msg : zError(status));
      size_t produced = decoded.size() - stream.avail_out;
      if (produced > 0 && !output(reinterpret_cast<const char *>(decoded.data()), produced))
        return;
      // Decoded bytes that a full output left behind come with the next piece: the
      // member's trailer, its last bytes, is read only once every byte is out.
      if (stream.avail_in == 0)
        break;
    }
    before += (long long)size;
  }
  if (inMember)
    throw truncated(Compression::Gzip, before);
}

QString lzmaReason(lzma_ret status) {
  switch (status) {
  case LZMA_MEM_ERROR:
    return "out of memory";
  case LZMA_FORMAT_ERROR:
    return "not the .xz format";
  case LZMA_OPTIONS_ERROR:
    return "unsupported options";
  default:
    return "compressed data is corrupt";
  }
}

/// Runs the decoder over the input it holds, giving out what it decodes; false once
/// the output wants no more. `end` is the file's byte after that input.
bool codeXz(lzma_stream &stream, lzma_action action, std::vector<uint8_t> &decoded,
            const DecodedOutput &output, long long end) {
  for (;;) {
    stream.next_out = decoded.data();
    stream.avail_out = decoded.size();
    lzma_ret status = lzma_code(&stream, action);
    size_t produced = decoded.size() - stream.avail_out;
    if (produced > 0 && !output(reinterpret_cast<const char *>(decoded.data()), produced))
      return false;
    if (status == LZMA_STREAM_END)
      return true;
    if (status == LZMA_BUF_ERROR && action == LZMA_FINISH)
      throw truncated(Compression::Xz, end);
    if (status != LZMA_OK && status != LZMA_BUF_ERROR)
      throw corrupt(Compression::Xz, end - (long long)stream.avail_in, lzmaReason(status));
    // Decoded bytes left behind come with the next piece, or at the finish.
    if (action == LZMA_RUN && stream.avail_in == 0)
      return true;
  }
}

/// xz: stream after stream, as xz itself decodes concatenated files.
void decompressXz(const CompressedInput &input, const DecodedOutput &output) {
  lzma_stream stream = LZMA_STREAM_INIT;
  if (lzma_stream_decoder(&stream, UINT64_MAX, LZMA_CONCATENATED) != LZMA_OK)
    throw DecodeError{"cannot start the xz decoder"};
  std::unique_ptr<lzma_stream, void (*)(lzma_stream *)> owner(&stream, lzma_end);
  std::vector<uint8_t> decoded(OutputBytes);
  long long end = 0;
  const char *data;
  size_t size;
  while (input(data, size)) {
    stream.next_in = reinterpret_cast<const uint8_t *>(data);
    stream.avail_in = size;
    end += (long long)size;
    if (!codeXz(stream, LZMA_RUN, decoded, output, end))
      return;
  }
  stream.next_in = nullptr;
  stream.avail_in = 0;
  codeXz(stream, LZMA_FINISH, decoded, output, end);
}

} // namespace

Compression compressionOf(const char *head, size_t size) {
  for (const Magic &magic : Magics)
    if (size >= magic.size && memcmp(head, magic.bytes, magic.size) == 0)
      return magic.compression;
  return Compression::None;
}

Compression compressionOfName(const QString &name) {
  if (name.endsWith(".zst"))
    return Compression::Zstd;
  if (name.endsWith(".gz"))
    return Compression::Gzip;
  if (name.endsWith(".xz"))
    return Compression::Xz;
  return Compression::None;
}

QString compressionName(Compression compression) {
  switch (compression) {
  case Compression::Zstd:
    return "zstd";
  case Compression::Gzip:
    return "gzip";
  case Compression::Xz:
    return "xz";
  default:
    return "plain text";
  }
}

void decompress(Compression compression, const CompressedInput &input,
                const DecodedOutput &output) {
  BlockInput blocks(input);
  switch (compression) {
  case Compression::Zstd:
    return decompressZstd(blocks, output);
  case Compression::Gzip:
    return decompressGzip(blocks, output);
  case Compression::Xz:
    return decompressXz(blocks, output);
  default:
    throw DecodeError{"not compressed"};
  }
}
