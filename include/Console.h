//===- Console.h - Console text, the error banner and the debug flag --*- C++ -*-===//
//
// Every message of the library goes to the standard error stream, either as plain
// console text or framed in the "translator error" banner. Status lines of the tools
// themselves go to standard output and are not handled here.
//
//===----------------------------------------------------------------------------===//
#ifndef NEXIL_CONSOLE_H
#define NEXIL_CONSOLE_H

#include <QString>
#include <QStringList>

/// Set by the -d option; every debug print tests it. Defined with the console, in
/// Console.cpp.
extern bool Debug;

namespace Nexil {

/// Set by every error banner; stays set for the life of the process.
extern bool error;

/// The console: text formatted with Qt's printf conventions, written to standard error.
class ConsoleClass {
public:
  /// Formats the arguments with Qt's printf conventions and appends the text.
  void printf(const char *format, ...) __attribute__((format(printf, 2, 3)));
  /// Writes the text, in the local 8-bit encoding, to standard error.
  void appendText(QString text);
};

/// The one console object.
extern ConsoleClass Console;

/// Reporting of recoverable errors found in user input.
class Error {
public:
  /// Prints the framed banner with the text on standard error and sets Nexil::error.
  static void message(QString text);
  /// Reports a syntax error; only the text is printed, the context and line are not.
  static void syntax(QString text, QString other, int line);
};

/// While one exists, the banners' texts are collected here instead of being printed,
/// and console text is dropped, so that a tool can report them in its own words.
/// Nexil::error is still set. Captures nest; the innermost collects.
class MessageCapture {
public:
  /// Starts collecting; the innermost capture alive collects.
  MessageCapture();
  /// Stops collecting; the capture outside it, if any, collects again.
  ~MessageCapture();
  /// A capture is tied to its scope: not copied.
  MessageCapture(const MessageCapture &) = delete;
  MessageCapture &operator=(const MessageCapture &) = delete;

  /// The texts of the banners raised since construction or the last takeMessages().
  QStringList takeMessages();

private:
  friend class Error;
  friend class ConsoleClass;
  QStringList messages;
  MessageCapture *outer;
  static MessageCapture *current;
};

} // namespace Nexil

#endif // NEXIL_CONSOLE_H
