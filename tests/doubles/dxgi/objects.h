// The COM objects of the duplication double: their kinds, their counted references, and the record of calls
// that Windows forbids. An object keeps its parent alive, as in DXGI and Direct3D: an output its adapter, a
// texture its device.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>

#include "tests/doubles/dxgi/desktop_board.h"
#include "tests/doubles/method_table.h"

namespace vantelink_doubles {

enum class Kind : std::int32_t { Factory, Adapter, Output, Device, Context, Texture, Duplication };

// All objects begin with these members. The table of methods decides which interface an object has.
struct Object {
  void** methods = nullptr;
  Kind kind = Kind::Factory;
  Object* parent = nullptr;
  std::int32_t place = 0;             // index of an output on the board, or number of an adapter
  std::atomic<LONG> references{1};    // of the program and of children
  std::atomic<LONG> program_refs{1};  // of the program only
  void (*destroy)(Object*) = nullptr;
};

// Counts a reference that another object holds, and removes one.
void keep(Object* object);
void drop(Object* object);

// Records a new object, whose first reference the program holds.
void enrol(Object* object);

// The IUnknown methods of all objects.
MethodTable unknown_methods();

// Creates an object of the type T, which is Object or derived from it.
template <typename T>
T* make(Kind kind, MethodTable& methods, Object* parent, std::int32_t place) {
  T* const object = new T;
  object->methods = methods.get();
  object->kind = kind;
  object->parent = parent;
  object->place = place;
  object->destroy = [](Object* self) { delete static_cast<T*>(self); };
  enrol(object);
  return object;
}

// Whether `object` is of this kind; false for a null pointer.
bool is_a(const Object* object, Kind kind);

bool is(DesktopAbsurdity absurdity);

// Records a call that Windows forbids, and returns `result`.
HRESULT misuse(DesktopMisuse kind, HRESULT result = E_INVALIDARG);

// The rectangle of an output on the desktop.
RECT area_of(std::int32_t place);
bool attached(std::int32_t place);

}  // namespace vantelink_doubles
