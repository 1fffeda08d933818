//===- Base.h - Objects that travel through text as printed pointers --*- C++ -*-===//
//
// Interfaces that carry only name=value strings hand objects over as their printed
// address ("%p"). The tag is the signature by which such a text is recognised as
// pointing at a live object again.
//
//===----------------------------------------------------------------------------===//
#ifndef NEXIL_BASE_H
#define NEXIL_BASE_H

#include <QString>

/// Root of the objects that may be passed as a printed pointer.
class Base {
public:
  /// The signature "Base", zero-filled to eight bytes.
  char tag[8];

  /// Writes the tag.
  Base();
  /// Copies the tag as it is, overwritten or not.
  Base(const Base &other);
  /// Copies the tag as it is.
  Base &operator=(const Base &other);
  /// Does nothing; subclasses inherit it unchanged.
  virtual void ignore();
  /// Subclasses are deleted through this base.
  virtual ~Base();

  /// Whether the tag reads "Base".
  bool checkBase() const;
  /// The object whose address the text prints; throws a QString on a bad text or tag.
  static Base *get(QString s);
};

#endif // NEXIL_BASE_H
