//===- Hdf5.cpp - Small helpers over the HDF5 library's C interface -------===//

#include "Hdf5.h"

#include "Failure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Hdf5 {

int64_t check(int64_t result, const char *what) {
  if (result < 0)
    throw OutputError(errno ? QString::fromLocal8Bit(strerror(errno))
                            : QString("the HDF5 library could not ") + what);
  return result;
}

void attribute(hid_t object, const char *name, hid_t type, hid_t space, const void *value) {
  Handle a(H5Acreate2(object, name, type, space, H5P_DEFAULT, H5P_DEFAULT), H5Aclose,
           "create an attribute");
  check(H5Awrite(a, type, value), "write an attribute");
}

void textAttribute(hid_t object, const char *name, const QString &value) {
  QByteArray bytes = value.toLatin1();
  Handle type(H5Tcopy(H5T_C_S1), H5Tclose, "make a string type");
  check(H5Tset_size(type, std::max<size_t>(size_t(bytes.size()), 1)), "size a string type");
  check(H5Tset_strpad(type, H5T_STR_NULLPAD), "pad a string type");
  Handle space(H5Screate(H5S_SCALAR), H5Sclose, "make a scalar space");
  attribute(object, name, type, space, bytes.constData());
}

void numberAttribute(hid_t object, const char *name, double value) {
  Handle space(H5Screate(H5S_SCALAR), H5Sclose, "make a scalar space");
  attribute(object, name, H5T_NATIVE_DOUBLE, space, &value);
}

void integerAttribute(hid_t object, const char *name, int64_t value) {
  Handle space(H5Screate(H5S_SCALAR), H5Sclose, "make a scalar space");
  attribute(object, name, H5T_NATIVE_INT64, space, &value);
}

void readAttribute(hid_t object, const char *name, hid_t type, void *value) {
  Handle a(H5Aopen(object, name, H5P_DEFAULT), H5Aclose, "open an attribute");
  check(H5Aread(a, type, value), "read an attribute");
}

Handle group(hid_t parent, const QByteArray &name) {
  return Handle(H5Gcreate2(parent, name.constData(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT),
                H5Gclose, "create a group");
}

Handle openGroup(hid_t parent, const QByteArray &name) {
  return Handle(H5Gopen2(parent, name.constData(), H5P_DEFAULT), H5Gclose, "open a group");
}

} // namespace Hdf5
