#pragma once

#include "MaintenancePlugin/PublicSurface.h"

#include <gtest/gtest.h>

/// Purpose: what a declared attribute, collection or set of reactors promises, as checks that take its entity and its name.
namespace MaintenanceMode {

/// `told( change )`: how often the entity tells of one attribute during the change. The handler with its parameters.
#define TOLD( Entity, object, ... )                                                                          \
   const auto told = [&]( auto change ) {                                                                    \
      struct Told final : Vel::ReactorTo< U32, Entity > {                                                    \
         using ReactorTo::ReactorTo;                                                                         \
         void __VA_ARGS__ override { ++*sm(); }                                                              \
      };                                                                                                     \
      U32 times = 0;                                                                                         \
      Vel::Watch< Told > watch;                                                                              \
      watch.is( Ptr< const Entity >( object ), &times ).hasNotificationActiveIs( true );                     \
      change();                                                                                              \
      return times;                                                                                          \
   }

/// `thrown( change )`: whether what a handler of one attribute throws reaches whoever makes the change.
#define THROWN( Entity, object, ... )                                                                        \
   const auto thrown = [&]( auto change ) {                                                                  \
      struct FromHandler {};                                                                                 \
      struct Throws final : Vel::ReactorTo< U32, Entity > {                                                  \
         using ReactorTo::ReactorTo;                                                                         \
         void __VA_ARGS__ override { throw FromHandler(); }                                                  \
      };                                                                                                     \
      U32 owner = 0;                                                                                         \
      Vel::Watch< Throws > watch;                                                                            \
      watch.is( Ptr< const Entity >( object ), &owner ).hasNotificationActiveIs( true );                     \
      try {                                                                                                  \
         change();                                                                                           \
      } catch ( const FromHandler & ) {                                                                      \
         return true;                                                                                        \
      }                                                                                                      \
      return false;                                                                                          \
   }

/// An attribute that takes both values.
#define EXPECT_ATTRIBUTE( Entity, object, name, handler, first, second )                                     \
   do {                                                                                                      \
      SCOPED_TRACE( #Entity "::" #name );                                                                    \
      TOLD( Entity, object, handler() );                                                                     \
      object->name##Is( first );                                                                             \
      EXPECT_EQ( first, object->name() );                                                                    \
      EXPECT_EQ( 1u, told( [&] { object->name##Is( second ); } ) );                                          \
      EXPECT_EQ( second, object->name() );                                                                   \
      EXPECT_EQ( 0u, told( [&] { object->name##Is( second ); } ) ) << "equal";                               \
      EXPECT_EQ( second, object->name() );                                                                   \
   } while ( false )

/// A child of which there is one; it is there.
#define EXPECT_RELEASED_ONCE( Entity, object, name, handler )                                                \
   do {                                                                                                      \
      SCOPED_TRACE( #Entity "::" #name );                                                                    \
      TOLD( Entity, object, handler() );                                                                     \
      ASSERT_TRUE( object->name() );                                                                         \
      EXPECT_EQ( 1u, told( [&] { object->name##Del(); } ) );                                                 \
      EXPECT_FALSE( object->name() );                                                                        \
      EXPECT_EQ( 0u, told( [&] { object->name##Del(); } ) ) << "absent";                                     \
   } while ( false )

#define EXPECT_NONE( object, name )                                                                          \
   EXPECT_EQ( 0u, object->name##s() );                                                                       \
   EXPECT_EQ( nullptr, object->name##First() )

/// Two keys that are there, the first one since longer; `again` puts that one back after it has been deleted.
#define EXPECT_WALKED_AND_DELETED( object, name, one, again )                                                \
   EXPECT_EQ( 2u, object->name##s() );                                                                       \
   ASSERT_NE( nullptr, object->name##First() );                                                              \
   EXPECT_EQ( one, *object->name##First() );                                                                 \
   EXPECT_EQ( 1u, told( [&] { EXPECT_TRUE( object->name##Del( one ) ); } ) );                                \
   EXPECT_EQ( nullptr, object->name( one ) );                                                                \
   EXPECT_EQ( 1u, object->name##s() );                                                                       \
   again;                                                                                                    \
   EXPECT_EQ( 2u, told( [&] { object->name##DelAll(); } ) );                                                 \
   EXPECT_NONE( object, name )

/// A map to bool that is empty.
#define EXPECT_MAP( Entity, object, name, handler, Key, one, other )                                         \
   do {                                                                                                      \
      SCOPED_TRACE( #Entity "::" #name );                                                                    \
      TOLD( Entity, object, handler( const Key & ) );                                                        \
      EXPECT_NONE( object, name );                                                                           \
      EXPECT_EQ( 0u, told( [&] { EXPECT_FALSE( object->name##Del( one ) ); } ) );                            \
      EXPECT_EQ( 1u, told( [&] { object->name##Is( one, true ); } ) );                                       \
      EXPECT_EQ( 0u, told( [&] { object->name##Is( one, true ); } ) ) << "equal";                            \
      EXPECT_EQ( 1u, told( [&] { object->name##Is( one, false ); } ) );                                      \
      ASSERT_NE( nullptr, object->name( one ) );                                                             \
      EXPECT_FALSE( *object->name( one ) );                                                                  \
      EXPECT_EQ( nullptr, object->name( other ) );                                                           \
      object->name##Is( other, true );                                                                       \
      EXPECT_WALKED_AND_DELETED( object, name, one, object->name##Is( one, true ) );                         \
      THROWN( Entity, object, handler( const Key & ) );                                                      \
      EXPECT_TRUE( thrown( [&] { object->name##Is( one, true ); } ) );                                       \
      EXPECT_TRUE( object->name( one ) ) << "stored before it is told";                                      \
      EXPECT_TRUE( thrown( [&] { object->name##Del( one ); } ) );                                            \
      EXPECT_FALSE( object->name( one ) ) << "gone before it is told";                                       \
   } while ( false )

/// What is said of the null that the change tries to put.
template < class Change >
String refusal( Change change ) {
   try {
      change();
   } catch ( const Vel::RangeError & error ) {
      return error.what();
   }
   return "nothing refused";
}
#define EXPECT_NULL_REFUSED( Entity, object, name, operation, key )                                          \
   EXPECT_EQ(                                                                                                \
      "null _" #name " parameter to mutator for MaintenanceMode::" #Entity "::" #name " not allowed",        \
      refusal( [&] { object->operation( key, nullptr ); } ) )

/// Owned children, none so far; `make( key )` makes one, `madeIs( key )` has one made.
#define EXPECT_CHILDREN( Entity, object, name, handler, Key, one, other, make, madeIs )                      \
   do {                                                                                                      \
      SCOPED_TRACE( #Entity "::" #name );                                                                    \
      TOLD( Entity, object, handler( const Key & ) );                                                        \
      EXPECT_NONE( object, name );                                                                           \
      EXPECT_EQ( 0u, told( [&] { EXPECT_FALSE( object->name##Del( one ) ); } ) );                            \
      EXPECT_NULL_REFUSED( Entity, object, name, name##Put, one );                                           \
      EXPECT_NONE( object, name );                                                                           \
      EXPECT_EQ( 1u, told( [&] { EXPECT_NE( nullptr, madeIs( one ) ); } ) );                                 \
      auto * const present = object->name( one );                                                            \
      EXPECT_EQ( 0u, told( [&] { EXPECT_EQ( present, madeIs( one ) ); } ) );                                 \
      const auto given = make( one );                                                                        \
      EXPECT_EQ( 2u, told( [&] { EXPECT_EQ( given.get(), object->name##Put( one, given ) ); } ) )            \
         << "the one that was there goes first";                                                             \
      EXPECT_EQ( 0u, told( [&] { EXPECT_EQ( given.get(), object->name##Put( one, given ) ); } ) )            \
         << "equal";                                                                                         \
      EXPECT_EQ( given.get(), object->name( one ) );                                                         \
      EXPECT_EQ( nullptr, object->name( other ) );                                                           \
      madeIs( other );                                                                                       \
      EXPECT_WALKED_AND_DELETED( object, name, one, madeIs( one ) );                                         \
      THROWN( Entity, object, handler( const Key & ) );                                                      \
      EXPECT_TRUE( thrown( [&] { madeIs( one ); } ) );                                                       \
      EXPECT_TRUE( object->name( one ) ) << "put before it is told";                                         \
      EXPECT_TRUE( thrown( [&] { object->name##Put( one, given ); } ) );                                     \
      EXPECT_FALSE( object->name( one ) ) << "the one that was there has gone";                              \
      EXPECT_TRUE( thrown( [&] { object->name##Put( one, given ); } ) );                                     \
      EXPECT_EQ( given.get(), object->name( one ) );                                                         \
      EXPECT_TRUE( thrown( [&] { object->name##Del( one ); } ) );                                            \
      EXPECT_FALSE( object->name( one ) ) << "gone before it is told";                                       \
   } while ( false )

/// Reactors, none so far, to two entities.
#define EXPECT_REACTORS( Entity, object, name, one, toOne, other, toOther )                                  \
   do {                                                                                                      \
      SCOPED_TRACE( #Entity "::" #name );                                                                    \
      EXPECT_NONE( object, name );                                                                           \
      EXPECT_FALSE( object->name##Del( one ) );                                                              \
      EXPECT_NULL_REFUSED( Entity, object, name, name##Is, one );                                            \
      EXPECT_NONE( object, name );                                                                           \
      auto * const made = object->name##Is( one, toOne );                                                    \
      ASSERT_NE( nullptr, made );                                                                            \
      EXPECT_EQ( toOne.get(), made->entity() );                                                              \
      EXPECT_EQ( object.get(), made->sm() );                                                                 \
      EXPECT_TRUE( made->hasNotificationActive() );                                                          \
      EXPECT_EQ( made, object->name##Is( one, toOther ) );                                                   \
      EXPECT_EQ( toOne.get(), made->entity() ) << "one that is there stays as it is";                        \
      EXPECT_EQ( nullptr, object->name( other ) );                                                           \
      object->name##Is( other, toOther );                                                                    \
      EXPECT_EQ( 2u, object->name##s() );                                                                    \
      ASSERT_NE( nullptr, object->name##First() );                                                           \
      EXPECT_EQ( one, *object->name##First() );                                                              \
      EXPECT_TRUE( object->name##Del( one ) );                                                               \
      EXPECT_EQ( nullptr, object->name( one ) );                                                             \
      EXPECT_EQ( 1u, object->name##s() );                                                                    \
      object->name##Is( one, toOne );                                                                        \
      object->name##DelAll();                                                                                \
      EXPECT_NONE( object, name );                                                                           \
   } while ( false )

} // namespace MaintenanceMode
