//===- Param.h - Parameters of the suite's programs -------------*- C++ -*-===//
//
// Named parameters of the suite's programs are argument hashes (ArgHash.h) and macro
// definitions (Macro.h); the twiss tool and this library need nothing further here.
// The header exists so that the suite's other programs find the library's parameter
// interface under its usual name.
//
//===----------------------------------------------------------------------------===//
#ifndef NEXIL_PARAM_H
#define NEXIL_PARAM_H

#include "ArgHash.h"
#include "Macro.h"

#endif // NEXIL_PARAM_H
