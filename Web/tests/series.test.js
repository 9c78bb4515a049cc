import assert from 'node:assert/strict';
import { test } from 'node:test';
import * as format from '../src/format.js';
import { Series, sumUp, summary } from '../src/series.js';

const points = ( series ) => series.times.map( ( time, i ) => [ time, series.ins[ i ], series.outs[ i ] ] );
const made = ( ...all ) => {
   const series = new Series( 100 );
   for ( const point of all )
      series.push( ...point );
   return series;
};

test( 'points are only added behind', () => {
   assert.deepEqual( points( made( [ 10, 1, 2 ], [ 10, 3, 4 ], [ 5, 5, 6 ], [ 11, 7, 8 ] ) ), [ [ 10, 1, 2 ], [ 11, 7, 8 ] ] );
} );

test( 'of a level stretch the ends are kept', () => {
   assert.deepEqual( points( made( [ 1, 5, 5 ], [ 2, 5, 5 ], [ 3, 5, 5 ], [ 4, 5, 5 ], [ 5, 6, 5 ] ) ),
      [ [ 1, 5, 5 ], [ 4, 5, 5 ], [ 5, 6, 5 ] ] );
} );

test( 'what is older than the span goes, but for the point that the curve enters from', () => {
   const series = new Series( 100 );
   for ( let time = 0; time < 1000; ++time )
      series.push( time, time, 0 );
   assert.ok( series.length <= 122, String( series.length ) );
   assert.ok( series.times[ 0 ] < 899 );
   assert.equal( series.last, 999 );
} );

test( 'kept samples take the place of what was known of their time, each at the end of its step, and live ones go on behind', () => {
   const series = made( [ 80, 4, 4 ], [ 100, 1, 1 ], [ 111, 2, 2 ], [ 116, 3, 3 ] );
   series.take( 90, 5, [ 9, 8, null, 7, null ], [ 9, 8, null, 7, null ] );
   assert.deepEqual( points( series ),
      [ [ 80, 4, 4 ], [ 95, 9, 9 ], [ 100, 8, 8 ], [ 105, null, null ], [ 110, 7, 7 ], [ 111, 2, 2 ], [ 116, 3, 3 ] ] );
} );

test( 'a kept sample and the live one of the same time are one point', () => {
   const series = new Series( 100, 5 );
   for ( const [ time, rate ] of [ [ 105, 1 ], [ 110, 2 ], [ 115, 3 ] ] )
      series.push( time, rate, rate );
   series.take( 95, 5, [ 9, 1, 2 ], [ 9, 1, 2 ] );
   assert.deepEqual( points( series ), [ [ 100, 9, 9 ], [ 105, 1, 1 ], [ 110, 2, 2 ], [ 115, 3, 3 ] ] );
} );

test( 'where three periods are missing the curve ends and begins anew', () => {
   const series = new Series( 100, 5 );
   assert.deepEqual( [ [ 10, 1, 2 ], [ 25, 3, 4 ], [ 41, 5, 6 ] ].map( ( point ) => series.push( ...point ) ), [ false, false, true ] );
   assert.deepEqual( points( series ), [ [ 10, 1, 2 ], [ 25, 3, 4 ], [ 30, null, null ], [ 41, 5, 6 ] ] );
} );

test( 'when the clock is set back the curve begins anew, and not for what comes a little late', () => {
   const series = new Series( 100, 5 );
   assert.deepEqual( [ [ 10, 1, 2 ], [ 15, 3, 4 ], [ 11, 5, 6 ], [ 9.5, 7, 8 ], [ 14.5, 9, 9 ] ]
      .map( ( point ) => series.push( ...point ) ), [ false, false, false, true, false ] );
   assert.deepEqual( points( series ), [ [ 9.5, 7, 8 ], [ 14.5, 9, 9 ] ] );
} );

test( 'kept samples fill the gap that they are asked for, and tear no hole into what is level', () => {
   const series = new Series( 1000, 5 );
   for ( let time = 0; time <= 300; time += 5 )
      series.push( time, 7, 7 );
   series.push( 400, 8, 8 );
   series.take( 280, 5, Array( 23 ).fill( 6 ), Array( 23 ).fill( 6 ) );
   assert.deepEqual( points( series ), [ [ 0, 7, 7 ], [ 280, 7, 7 ], [ 285, 6, 6 ], [ 395, 6, 6 ], [ 400, 8, 8 ] ] );
} );

test( 'kept samples of which none is known change nothing', () => {
   const series = made( [ 100, 1, 1 ] );
   series.take( 95, 5, [ null, null ], [ null, null ] );
   assert.deepEqual( points( series ), [ [ 100, 1, 1 ] ] );
} );

test( 'a sum of level curves has no gap', () => {
   const level = () => {
      const series = new Series( 1000, 5 );
      for ( let time = 0; time <= 300; time += 5 )
         series.push( time, 7, 7 );
      return series;
   };
   const sum = new Series( 1000, 5 );
   sumUp( sum, [ level(), level() ] );
   assert.deepEqual( points( sum ), [ [ 0, 14, 14 ], [ 300, 14, 14 ] ] );
} );

test( 'a sum counts each interface as its last point, and only those that are known', () => {
   const sum = new Series( 100 );
   sumUp( sum, [ made( [ 1, 10, 1 ], [ 3, 20, 2 ] ), made( [ 2, 100, 100 ], [ 4, null, 0 ] ) ] );
   assert.deepEqual( points( sum ), [ [ 1, 10, 1 ], [ 2, 110, 101 ], [ 3, 120, 102 ], [ 4, 20, 2 ] ] );
} );

test( 'a curve is told in words', () => {
   assert.equal( summary( made( [ 0, 4e8, null ], [ 60, 812000, null ] ), 1e5, format ),
      'in: now 812 kbit/s, highest 400 Mbit/s at 00:00:00, lowest 812 kbit/s at 00:01:00; out: no samples; threshold 100 kbit/s' );
} );
