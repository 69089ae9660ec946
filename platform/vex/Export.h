#pragma once
// FALMROUTE_EXPORT: what libFalMroute.so offers chip agents.
//
// The library and the platform it is written against are compiled with
// hidden visibility: a symbol leaves the shared library only when its
// declaration carries this mark. The classes and functions that the
// installed headers declare carry it (a class marked exports its members,
// its vtable and its type information); what only the library's own sources
// see (their trace macros, helpers of one source file) stays inside, so the
// exported surface is what the headers promise. Inline functions and
// templates need no mark: an agent compiles its own copy.
//
// The programs of this tree link the library statically, where the mark
// changes nothing.
#define FALMROUTE_EXPORT [[gnu::visibility("default")]]
