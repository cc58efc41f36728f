#pragma once

#include <vips/vips.h>

#include <memory>
#include <utility>

namespace orvane::platform {

struct Unreference {
  void operator()(gpointer object) const { g_object_unref(object); }
};

/// Owns one reference to an object of libvips; null stands for a failure.
template <class Object>
using VipsHandle = std::unique_ptr<Object, Unreference>;

/// Applies an operation of libvips with its optional arguments; null passes through as null.
template <class Operation, class... Arguments>
VipsHandle<VipsImage> operate(const VipsHandle<VipsImage>& image, Operation operation,
                              Arguments... arguments) {
  VipsImage* result = nullptr;
  if (image) operation(image.get(), &result, arguments..., nullptr);
  return VipsHandle<VipsImage>(result);
}

}  // namespace orvane::platform
