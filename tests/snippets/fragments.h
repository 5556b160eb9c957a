#pragma once

#include <gtk/gtk.h>
#include <tarvex/client.h>
#include <tarvex/platform/platform.h>

#include <filesystem>
#include <functional>
#include <vector>

// What the fragments of a document use without having made it. They are compiled, and never linked.
extern tarvex::Client& client;
extern GtkWindow* window;
extern GtkWidget* overlay;
extern const std::vector<tarvex::DataReader> readers;
extern const std::function<void(bool)> decided;
extern const tarvex::Client::StartCompletion onStart;
extern const std::filesystem::path emptyDirectory;
extern const std::filesystem::path fakeSensorTree;
