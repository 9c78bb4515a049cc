#pragma once

#include "Platform/Vel/String.h"

#include <stdexcept>

/// Purpose: the failures of the entity framework. Exceptions are for requests that the framework refuses and
/// that a caller may survive; assertions are for our own mistakes and end the process.
namespace Vel {

/// Base of every exception that the framework throws.
class Exception : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

/// A child exists under this key and was built from other constructor arguments.
class NameInUse : public Exception {
 public:
   using Exception::Exception;
   /// The framework's text. `attribute` is the constructor parameter with its leading underscore.
   NameInUse( std::string_view attribute, std::string_view newValue, std::string_view currentValue );
};

/// A value outside of what the parameter allows, or a null pointer where an entity is needed.
class RangeError : public Exception {
 public:
   using Exception::Exception;
   /// "null _x parameter to mutator for Type::attr not allowed"
   static RangeError nullParameter( std::string_view parameter, std::string_view typeAndAttribute );
};

/// Any other refusal, with free text.
class InternalException : public Exception {
 public:
   using Exception::Exception;
};

/// What the assertion hook of a test throws instead of ending the process.
class AssertionFailed : public std::logic_error {
 public:
   using std::logic_error::logic_error;
};

/// Called with the failed condition's text before the process aborts. A test's hook may throw
/// AssertionFailed; an agent's hook may save what it must. If the hook returns, the process aborts.
using AssertionHook = void ( * )( const char * condition, const char * file, unsigned line );

/// Sets the hook and returns the one that was set before; null restores the plain abort.
AssertionHook assertionHookIs( AssertionHook hook );

/// Ends the process (or throws, see AssertionHook) with the text of a failed condition.
[[noreturn]] void assertionFailed( const char * condition, const char * file, unsigned line );

/// While it lives, failed assertions throw AssertionFailed with the condition's text.
class AssertionsThrow {
 public:
   AssertionsThrow();
   ~AssertionsThrow();
   AssertionsThrow( const AssertionsThrow & ) = delete;
   AssertionsThrow & operator=( const AssertionsThrow & ) = delete;

 private:
   AssertionHook previous_;
};

} // namespace Vel

/// Programming errors only, in every build. The text is part of the system's diagnostics, so it is given by
/// hand and does not change when the expression is written differently.
#define VEL_ASSERT( condition, text )                                                                        \
   ( static_cast< bool >( condition ) ? static_cast< void >( 0 )                                             \
                                      : ::Vel::assertionFailed( text, __FILE__, __LINE__ ) )
