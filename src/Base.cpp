//===- Base.cpp - Objects that travel through text as printed pointers -----===//

#include "Base.h"

#include <cstdio>
#include <cstring>

Base::Base() {
  strncpy(tag, "Base", sizeof tag);
}

Base::Base(const Base &other) {
  memcpy(tag, other.tag, sizeof tag);
}

Base &Base::operator=(const Base &other) {
  memcpy(tag, other.tag, sizeof tag);
  return *this;
}

void Base::ignore() {}

Base::~Base() {}

bool Base::checkBase() const {
  return strncmp(tag, "Base", sizeof tag) == 0;
}

Base *Base::get(QString s) {
  void *pointer = nullptr;
  if (sscanf(s.toLocal8Bit().constData(), "%p", &pointer) < 1 || pointer == nullptr)
    throw QString("INTERNAL ERROR: Invalid pointer in Base::get A");
  Base *object = static_cast<Base *>(pointer);
  if (!object->checkBase())
    throw QString("INTERNAL ERROR: Invalid pointer in Base::get B");
  return object;
}
