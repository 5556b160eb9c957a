#pragma once

#include <glib-object.h>

#include <functional>
#include <memory>

namespace tarvex::glib {

/// Runs `block` once, later, on the thread that iterates `context`; never inline, whoever owns the context now. A
/// context that is never iterated keeps the block. Thread-safe.
void performIn(GMainContext* context, std::function<void()> block);

/// True on the main thread, which is the first one that called `claimMainThread`.
bool isOnMainThread();
void claimMainThread();

/// A reference to a GObject that any thread may drop: the object is released on the main thread, so that an interpreter
/// never meets the end of an object on a thread that it does not know.
template <typename Object>
std::shared_ptr<Object> reference(Object* object) {
    g_object_ref(object);
    return {object, [](Object* last) {
                if (isOnMainThread()) return g_object_unref(last);
                performIn(nullptr, [last] { g_object_unref(last); });
            }};
}

}  // namespace tarvex::glib
