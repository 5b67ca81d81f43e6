#pragma once

#include <string>

namespace kavo::formats {

//! What of a COLLADA document is the surface: geometries, nodes and scenes, without materials, skins,
//! animations and the like. assimp believes what these say about each other; so whatever could make it read
//! beyond its data, not come to an end or ask for memory that the document does not fill ends in a
//! `FileError` here: counts without as many numbers, accessors beyond their array, nodes that contain
//! themselves or make more than a hundred thousand, strips that are too short.
std::string ExtractDae(const std::string& content, const std::string& file);

}  // namespace kavo::formats
