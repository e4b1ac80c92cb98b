// SPDX-License-Identifier: MIT
#pragma once

#include <cassert>
#include <cstdint>
#include <string>
#include <utility>
#include <variant>

namespace fbx
{

// What kind of failure stopped a read, for callers that treat them differently.
enum class ErrorKind
{
    Io,          // the file could not be opened or read
    NotFbx,      // neither binary nor ASCII FBX
    Unsupported, // an FBX version the reader does not know
    Corrupt,     // damaged, cut short or inconsistent
    TooLarge,    // more than the memory budget, or more than the machine can give
};

// Why a read failed: what, where in the file (byte offset), in which record, and what kind of
// failure it was.
struct Error
{
    std::string reason;  // "compressed array does not inflate to 2048 bytes"
    std::string path;    // record path, "Objects/Geometry/Vertices"; empty outside any record
    int64_t offset = -1; // byte offset into the file; -1 when no byte is to blame (file not found)
    ErrorKind kind = ErrorKind::Corrupt;

    // "Objects/Geometry/Vertices at byte 12345: compressed array does not inflate to 2048 bytes"
    std::string text() const;
};

// A value or the Error that prevented it. Nothing in the library throws; every fallible call
// returns one of these and the caller must look at ok() before value().
template <class T> class [[nodiscard]] Result
{
public:
    Result(T value) : v_(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : v_(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return v_.index() == 0; }
    explicit operator bool() const { return ok(); }

    // Only when ok().
    T& value() &
    {
        assert(ok());
        return *std::get_if<0>(&v_);
    }
    const T& value() const&
    {
        assert(ok());
        return *std::get_if<0>(&v_);
    }
    T&& value() &&
    {
        assert(ok());
        return std::move(*std::get_if<0>(&v_));
    }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }

    // Only when !ok().
    const Error& error() const
    {
        assert(!ok());
        return *std::get_if<1>(&v_);
    }

private:
    std::variant<T, Error> v_;
};

} // namespace fbx
