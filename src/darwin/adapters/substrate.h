// The hooking entry point of the substrate loader, referenced weakly so the library loads wherever it is absent.
#pragma once

#include <objc/runtime.h>

extern "C" void MSHookMessageEx(Class cls, SEL selector, IMP replacement, IMP *orig) __attribute__((weak_import));
