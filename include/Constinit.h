//===- Constinit.h - Process-wide tables that exist before any code runs --*- C++ -*-===//
//
// The library's process-wide containers are read by other objects' static
// initialisation (a value parsed while a table of another translation unit is built).
// Qt's containers start empty without running code, so marking them for constant
// initialisation makes them usable whatever the order of static initialisation.
//
//===----------------------------------------------------------------------------===//
#ifndef NEXIL_CONSTINIT_H
#define NEXIL_CONSTINIT_H

#if defined(__clang__)
#define NEXIL_CONSTINIT [[clang::require_constant_initialization]]
#elif defined(__GNUC__)
#define NEXIL_CONSTINIT __constinit
#else
#define NEXIL_CONSTINIT
#endif

#endif // NEXIL_CONSTINIT_H
