#include "Platform/Vel/Error.h"

#include <cstdio>
#include <cstdlib>

namespace Vel {

namespace {
AssertionHook assertionHook = nullptr;

[[noreturn]] void throwAssertion( const char * condition, const char *, unsigned ) {
   throw AssertionFailed( condition );
}
} // namespace

NameInUse::NameInUse( std::string_view attribute, std::string_view newValue, std::string_view currentValue )
   : Exception( String( "Reinstantiating the pointer interface where constructor parameter attribute " )
                   .append( attribute )
                   .append( " has a different value of " )
                   .append( newValue )
                   .append( " than the current value of " )
                   .append( currentValue )
                   .append( " not allowed" ) ) {}

RangeError RangeError::nullParameter( std::string_view parameter, std::string_view typeAndAttribute ) {
   return RangeError( String( "null " )
                         .append( parameter )
                         .append( " parameter to mutator for " )
                         .append( typeAndAttribute )
                         .append( " not allowed" ) );
}

AssertionHook assertionHookIs( AssertionHook hook ) {
   AssertionHook previous = assertionHook;
   assertionHook = hook;
   return previous;
}

void assertionFailed( const char * condition, const char * file, unsigned line ) {
   if ( assertionHook )
      assertionHook( condition, file, line );
   std::fprintf( stderr, "%s:%u: assertion failed: %s\n", file, line, condition );
   std::abort();
}

AssertionsThrow::AssertionsThrow() : previous_( assertionHookIs( throwAssertion ) ) {}
AssertionsThrow::~AssertionsThrow() { assertionHookIs( previous_ ); }

} // namespace Vel
