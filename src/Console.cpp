//===- Console.cpp - Console text, the error banner and the debug flag ------===//

#include "Console.h"

#include <cstdarg>
#include <cstdio>

bool Debug = false;

namespace Nexil {

bool error = false;
ConsoleClass Console;

void ConsoleClass::printf(const char *format, ...) {
  va_list args;
  va_start(args, format);
  QString text = QString::vasprintf(format, args);
  va_end(args);
  appendText(text);
}

void ConsoleClass::appendText(QString text) {
  if (MessageCapture::current)
    return;
  fputs(text.toLocal8Bit().constData(), stderr);
}

void Error::message(QString text) {
  if (MessageCapture::current) {
    MessageCapture::current->messages.append(text);
    error = true;
    return;
  }
  fprintf(stderr, "***************************************************\n");
  fprintf(stderr, "*                                                 *\n");
  fprintf(stderr, "*                translator error                 *\n");
  fprintf(stderr, "* %s\n", text.toLocal8Bit().constData());
  fprintf(stderr, "*                                                 *\n");
  fprintf(stderr, "***************************************************\n");
  error = true;
}

void Error::syntax(QString text, QString /*other*/, int /*line*/) {
  message(text);
}

MessageCapture *MessageCapture::current = nullptr;

MessageCapture::MessageCapture() : outer(current) {
  current = this;
}

MessageCapture::~MessageCapture() {
  current = outer;
}

QStringList MessageCapture::takeMessages() {
  QStringList taken;
  taken.swap(messages);
  return taken;
}

} // namespace Nexil
