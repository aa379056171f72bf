#pragma once
// Where in the source something happened, taken from the compiler: VX_HERE.

#include <cstddef>
#include <string_view>

// The cuts below happen while compiling, so that naming a place costs nothing at run time. clang 14 fails on an
// immediate call inside a lambda of a template.
#if defined(__clang__)
#define VX_CONSTEVAL constexpr
#else
#define VX_CONSTEVAL consteval
#endif

namespace Vx
{

/// A place in the source. The texts are views of string literals.
struct Location
{
    std::string_view file;  ///< Folder and base name, such as "Persistence/PersistManager".
    int line = 0;
    std::string_view function;  ///< Qualified name, such as "VxCommon::PersistManager::LoadJob".
};

/// Cuts the extension off a source path that the compiler already shortened (-fmacro-prefix-map).
VX_CONSTEVAL std::string_view FileTag(std::string_view path)
{
    const std::size_t dot = path.rfind('.');
    return dot == std::string_view::npos ? path : path.substr(0, dot);
}

/// Cuts a compiler's pretty function text down to the qualified name: no return type, arguments or qualifiers; inside a
/// lambda the name of the function around it.
VX_CONSTEVAL std::string_view FunctionName(std::string_view pretty)
{
    // "T ns::C::F(args)::<lambda(...)>" (GCC), "auto ns::C::F(args)::(anonymous class)::operator()(...)" (clang).
    if (const std::size_t lambda = pretty.find("::<lambda"); lambda != std::string_view::npos) {
        pretty = pretty.substr(0, lambda);
    } else if (const std::size_t anonymous = pretty.find("::(anonymous class)"); anonymous != std::string_view::npos) {
        pretty = pretty.substr(0, anonymous);
    } else if (const std::size_t with = pretty.find(" [with "); with != std::string_view::npos) {
        pretty = pretty.substr(0, with);
    }
    // The argument list starts at the first '(' outside template brackets that is not "(anonymous" or "operator()".
    std::size_t end = pretty.size();
    int depth = 0;
    for (std::size_t i = 0; i < pretty.size(); ++i) {
        const char c = pretty[i];
        if (c == '<') {
            ++depth;
        } else if (c == '>') {
            --depth;
        } else if (c == '(' && depth == 0) {
            if (pretty.substr(i).starts_with("(anonymous")) {
                continue;
            }
            if (i >= 8 && pretty.substr(i - 8, 8) == "operator" && pretty.substr(i).starts_with("()(")) {
                continue;
            }
            end = i;
            break;
        }
    }
    // The arguments of a template belong to one instance of it, not to its name.
    if (end > 0 && pretty[end - 1] == '>' && pretty.substr(0, end).find('<') != std::string_view::npos) {
        int open = 0;
        do {
            --end;
            open += pretty[end] == '>' ? 1 : pretty[end] == '<' ? -1 : 0;
        } while (end > 0 && open != 0);
    }
    std::size_t begin = 0;
    depth = 0;
    for (std::size_t i = 0; i < end; ++i) {
        const char c = pretty[i];
        if (c == '<' || c == '(' || c == '{') {
            ++depth;
        } else if (c == '>' || c == ')' || c == '}') {
            --depth;
        } else if (c == ' ' && depth == 0) {
            begin = i + 1;
        }
    }
    while (begin < end && (pretty[begin] == '*' || pretty[begin] == '&')) {
        ++begin;
    }
    return pretty.substr(begin, end - begin);
}

}  // namespace Vx

/// The file tag of this source. A source that is one of several of a class defines it as the class's before its
/// includes.
#ifndef VX_FILE_TAG
#define VX_FILE_TAG ::Vx::FileTag(__FILE__)
#endif

/// The place of this line as a Vx::Location.
#define VX_HERE (::Vx::Location{VX_FILE_TAG, __LINE__, ::Vx::FunctionName(__PRETTY_FUNCTION__)})

/// The place of this line under another function's name, for the few places whose reports name a fixed function.
#define VX_HERE_AS(functionName) (::Vx::Location{VX_FILE_TAG, __LINE__, functionName})
