#pragma once

namespace Platform::Linux {

/// A library that is loaded when it is needed first, for those that cost a start more than they give to most.
/// It stays loaded for as long as the process runs.
///
/// Threads: any. Errors: a process that cannot load the library or misses a function ends with a sentence
/// that names it and its package, as it would have ended at its start.
class DynamicLibrary {
public:
    /// The address of a function, which becomes a pointer of the type that is wanted.
    struct Symbol {
        void* address;

        template <typename Function>
        operator Function*() const // NOLINT(google-explicit-constructor)
        {
            return reinterpret_cast<Function*>(address);
        }
    };

    /// `name` carries the version of the interface; both texts must outlive this object.
    DynamicLibrary(const char* name, const char* package);
    DynamicLibrary(const DynamicLibrary&) = delete;
    DynamicLibrary& operator=(const DynamicLibrary&) = delete;

    [[nodiscard]] Symbol symbol(const char* function) const;

private:
    [[noreturn]] void fail() const;

    const char* m_name;
    const char* m_package;
    void* m_handle;
};

} // namespace Platform::Linux
