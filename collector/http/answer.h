#pragma once

#include <string>

#include "collector/http/server.h"

namespace tarvex::collector {

/// The answer of the server itself: a status and a plain sentence.
Response plainAnswer(int status);

/// How the body of an answer goes over the connection.
struct Framing {
    bool isChunked = false;
    bool endsConnection = false;
};

/// No body belongs to an answer of this status.
bool isBodiless(int status);
/// The head of an answer in HTTP/1.1, with the empty line.
std::string headOf(const Response& response, const Framing& framing);
/// A piece of a chunked body; the empty one ends it.
std::string chunkOf(const std::string& piece);

}  // namespace tarvex::collector
