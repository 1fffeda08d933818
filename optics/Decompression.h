//===- Decompression.h - Compressed track files, streamed ------*- C++ -*-===//
//
// Track files are kept compressed with zstd, gzip or xz; each is decoded as a stream
// through its own library, a piece at a time, so the memory does not grow with the
// file. A file of several frames, members or streams (as parallel compressors and
// `cat` of compressed files make them) is decoded whole. The kind of a file is told
// by its first bytes.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_DECOMPRESSION_H
#define OPTICS_DECOMPRESSION_H

#include <QString>
#include <cstddef>
#include <functional>

/// How a track file's bytes are stored.
enum class Compression { None, Zstd, Gzip, Xz };

/// The compression whose magic number the bytes begin with; None for any other bytes.
Compression compressionOf(const char *head, size_t size);

/// The compression that a file name's extension (.zst, .gz, .xz) says; None for others.
Compression compressionOfName(const QString &name);

/// "zstd", "gzip", "xz"; "plain text" for None.
QString compressionName(Compression compression);

/// The compressed bytes, a piece at a time: false at their end (or after a failed
/// read, which the caller keeps).
using CompressedInput = std::function<bool(const char *&data, size_t &size)>;

/// Takes the decoded bytes; false when nobody wants more of them.
using DecodedOutput = std::function<bool(const char *data, size_t size)>;

/// Why decoding stopped short: the message says what was wrong and at which byte of
/// the compressed file.
struct DecodeError {
  QString message;
};

/// Decodes every piece of the input into the output; throws a DecodeError for corrupt
/// or truncated data. Returns early, without an error, when the output wants no more.
void decompress(Compression compression, const CompressedInput &input, const DecodedOutput &output);

#endif // OPTICS_DECOMPRESSION_H
