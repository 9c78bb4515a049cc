import assert from 'node:assert/strict';
import { test } from 'node:test';
import { Happened } from '../src/happened.js';

const event = ( sequence, subject = 'et1' ) => ( { sequence, subject } );
const happened = ( most, ...sequences ) => {
   const result = new Happened( most );
   for ( const sequence of sequences )
      result.take( event( sequence ) );
   return result;
};
const rows = ( ...of ) => of.map( ( row ) => ( row.before ? `${row.missed} before ${row.before.sequence}` : row.sequence ) );

test( 'events come into their order, each once', () => {
   assert.deepEqual( rows( ...happened( 10, 5, 7, 6, 5, 8, 7 ).rows() ), [ 5, 6, 7, 8 ] );
} );

test( 'what is missing between two events has a row until it comes', () => {
   const log = happened( 10, 1, 2, 6 );
   assert.deepEqual( rows( ...log.rows() ), [ 1, 2, '3 before 6', 6 ] );
   log.take( event( 4 ) );
   assert.deepEqual( rows( ...log.rows() ), [ 1, 2, '1 before 4', 4, '1 before 6', 6 ] );
   log.take( event( 3 ) );
   log.take( event( 5 ) );
   assert.deepEqual( rows( ...log.rows() ), [ 1, 2, 3, 4, 5, 6 ] );
} );

test( 'of some events those that are missing between any are told, since nobody knows of what they were', () => {
   const log = happened( 10, 1, 4, 5 );
   log.take( event( 6, 'et2' ) );
   assert.deepEqual( rows( ...log.rows( ( { subject } ) => subject === 'et2' ) ), [ '2 before 4', 6 ] );
   assert.deepEqual( rows( ...log.rows( undefined, 2 ) ), [ 5, 6 ] );
} );

test( 'the newest are kept, and what has gone does not come back', () => {
   const log = happened( 10, ...Array.from( { length: 100 }, ( _, i ) => i + 1 ) );
   assert.ok( log.events.length <= 12, String( log.events.length ) );
   log.take( event( 3 ) );
   assert.deepEqual( rows( ...log.rows( undefined, 3 ) ), [ 98, 99, 100 ] );
   assert.ok( log.events[ 0 ].sequence > 80 );
   assert.equal( log.last, 100 );
} );

test( 'another log begins with a row that says so, and its numbers are its own', () => {
   const log = happened( 10, 1, 2, 3 );
   log.begunAnew( 1 );
   log.take( event( 1 ) );
   log.take( event( 2 ) );
   assert.deepEqual( rows( ...log.rows() ), [ '0 before 1', 1, 2 ] );
   assert.equal( happened( 10 ).last, null );
} );
