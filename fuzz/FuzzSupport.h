//===- FuzzSupport.h - Shared set-up of the fuzz targets --------*- C++ -*-===//
//
// Every target starts each input from the same process-wide state, so that a finding
// reproduces from its input alone, and keeps the library's banners off the terminal.
//
//===----------------------------------------------------------------------------===//
#ifndef FUZZ_FUZZSUPPORT_H
#define FUZZ_FUZZSUPPORT_H

#include <QByteArray>
#include <QString>
#include <cstddef>
#include <cstdint>

/// The fuzzer's start-up hook, defined once for every target: sends the library's
/// console text and banners to /dev/null (the sanitizers and the fuzzer write to the
/// file descriptor directly and are still seen).
extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);

/// Writes the prefix and then the input to a file of that name in a temporary
/// directory; returns its path, or an empty text when it cannot be written.
QString writeInputFile(const char *name, const QByteArray &prefix, const uint8_t *data,
                       size_t size);

/// Restores the unit table, the macro tables and the coordinate system and planes.
void resetProcessState();

/// Resets the process-wide state when an input begins and again when it ends, so that
/// nothing an input made outlives it.
struct StateReset {
  StateReset() { resetProcessState(); }
  ~StateReset() { resetProcessState(); }
};

/// Whether a thrown text is one of the library's internal errors ("INTERNAL ERROR: ...").
bool isInternalError(const QString &message);

/// The input as text (UTF-8, invalid bytes replaced).
QString inputText(const uint8_t *data, size_t size);

#endif // FUZZ_FUZZSUPPORT_H
