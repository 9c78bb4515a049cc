import assert from 'node:assert/strict';
import { test } from 'node:test';
import * as format from '../src/format.js';

test( 'rates have three digits that count', () => {
   const rows = [ [ 0, '0 bit/s' ], [ 0.4, '0 bit/s' ], [ 812, '812 bit/s' ], [ 999.6, '1 kbit/s' ], [ 1000, '1 kbit/s' ],
      [ 1234, '1.23 kbit/s' ],
      [ 12340, '12.3 kbit/s' ], [ 812000, '812 kbit/s' ], [ 999999, '1 Mbit/s' ], [ 1.1e6, '1.1 Mbit/s' ], [ 4e8, '400 Mbit/s' ],
         [ 1e11, '100 Gbit/s' ],
      [ null, '–' ], [ undefined, '–' ], [ NaN, '–' ] ];
   for ( const [ bps, words ] of rows )
      assert.equal( format.rate( bps ), words, String( bps ) );
} );

test( 'durations have at most two units', () => {
   const rows = [ [ 0, '0s' ], [ -3, '0s' ], [ 59.4, '59s' ], [ 59.6, '1m00s' ], [ 190, '3m10s' ], [ 3599, '59m59s' ], [ 7500, '2h05m' ],
      [ 273600, '3d04h' ],
      [ null, '–' ] ];
   for ( const [ value, words ] of rows )
      assert.equal( format.duration( value ), words, String( value ) );
} );

test( 'times are UTC', () => {
   const time = format.seconds( '2026-11-21T14:02:07.250Z' );
   assert.equal( time, Date.UTC( 2026, 10, 21, 14, 2, 7, 250 ) / 1000 );
   assert.equal( format.clock( time ), '14:02:07' );
   assert.equal( format.shortClock( time ), '14:02' );
   assert.equal( format.day( time ), '2026-11-21 14:02:07' );
   assert.equal( format.seconds( null ), null );
   assert.equal( format.seconds( 'soon' ), null );
   assert.equal( format.clock( null ), '–' );
   assert.equal( format.moment( time, time - 3600 ), '14:02:07' );
   assert.equal( format.moment( time, time - 50000 ), '2026-11-21 14:02:07' );
} );

test( 'names are sorted as people count', () => {
   assert.deepEqual( [ 'et10', 'et2', 'bond0', 'et1' ].sort( format.byName ), [ 'bond0', 'et1', 'et2', 'et10' ] );
} );
