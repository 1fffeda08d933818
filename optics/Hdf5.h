//===- Hdf5.h - Small helpers over the HDF5 library's C interface -*- C++ -*-===//
//
// Identifiers closed when they go out of scope, and the attributes and groups the
// particle file is made of. A failure of the library becomes an OutputError whose
// message is the reason alone; the caller adds the file's name.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_HDF5_H
#define OPTICS_HDF5_H

#include <QByteArray>
#include <QString>
#include <cstdint>
#include <hdf5.h>
#include <vector>

namespace Hdf5 {

/// Returns the identifier or status, or throws an OutputError when it tells of a
/// failure: the system's reason where there is one, else what the library could not do.
int64_t check(int64_t result, const char *what);

/// An HDF5 identifier, closed with `close` when it goes out of scope.
class Handle {
public:
  Handle(int64_t id, herr_t (*close)(hid_t), const char *what)
      : id(check(id, what)), close(close) {}
  ~Handle() { close(id); }
  Handle(const Handle &) = delete;
  Handle &operator=(const Handle &) = delete;
  operator hid_t() const { return id; }

private:
  hid_t id;
  herr_t (*close)(hid_t);
};

void attribute(hid_t object, const char *name, hid_t type, hid_t space, const void *value);
/// A scalar fixed-length ASCII string, as the field's readers expect.
void textAttribute(hid_t object, const char *name, const QString &value);
void numberAttribute(hid_t object, const char *name, double value);
void integerAttribute(hid_t object, const char *name, int64_t value);

template <typename T>
void arrayAttribute(hid_t object, const char *name, hid_t type, const std::vector<T> &values) {
  hsize_t size = values.size();
  Handle space(H5Screate_simple(1, &size, nullptr), H5Sclose, "make an array space");
  attribute(object, name, type, space, values.data());
}

/// Reads a scalar attribute of a number type.
void readAttribute(hid_t object, const char *name, hid_t type, void *value);

Handle group(hid_t parent, const QByteArray &name);
Handle openGroup(hid_t parent, const QByteArray &name);

} // namespace Hdf5

#endif // OPTICS_HDF5_H
