// SPDX-License-Identifier: MIT
#pragma once

// The few process-wide registries (settings, shaders, textures, fonts, sound, physics, the view
// frustum) are made the same way: on first use by instance(), deleted by destroy() at shutdown,
// after which a later instance() makes a fresh one. destroy() on one never made does nothing.
// A registry derives from Singleton<Itself> and befriends it, keeping its constructor private.
template <typename T> class Singleton
{
public:
    static T& instance()
    {
        if (!single)
        {
            single = new T();
            single->created();
        }
        return *single;
    }
    static void destroy()
    {
        delete single;
        single = nullptr;
    }
    static bool exists() { return single != nullptr; }

protected:
    Singleton() = default;
    ~Singleton() = default;
    // Runs once the registry can be reached through instance(): for set-up that may use it.
    void created() {}

private:
    static inline T* single = nullptr;
};
