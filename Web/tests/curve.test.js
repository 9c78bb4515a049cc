// What the curves draw, read from their pixels: lines, the shaded zone and marks are where and of the colour that they
// have to be, and nowhere else.

import assert from 'node:assert/strict';
import { describe, test } from 'node:test';
import { soon } from './browser.js';
import { intf, iso, reason } from './fake.js';
import { rig, text } from './rig.js';

/**
 * How much of some places of a drawn curve has a colour of the page, from 0 to 1. A place is { colour, x: [ from, to ],
 * y: [ from, to ] } in seconds of time and in bits per second, without one of them from edge to edge; with one end for
 * both it is a line, which is looked for in the pixels beside it too. `aside` moves it by so many pixels to the right and down.
 */
const drawn = ( page, selector, places ) => page.locator( selector ).first().locator( '.curve-box' ).evaluate( ( box, all ) => {
   const { plot } = box.curve;
   const { left, top, width, height } = plot.bbox;
   const { data, width: columns } = plot.ctx.getImageData( 0, 0, plot.ctx.canvas.width, plot.ctx.canvas.height );
   const probe = document.body.appendChild( document.createElement( 'i' ) );
   const colourOf = ( name ) => {
      probe.style.color = `var(--${name})`;
      return getComputedStyle( probe ).color.match( /[\d.]+/g ).slice( 0, 3 ).map( Number );
   };
   const has = ( colour, x, y ) => {
      const at = 4 * ( y * columns + x );
      return data[ at + 3 ] > 25 && colour.every( ( value, i ) => Math.abs( data[ at + i ] - value ) < 11 );
   };
   const result = all.map( ( { colour, x, y, aside = [ 0, 0 ] } ) => {
      const rgb = colourOf( colour );
      const xs = x?.map( ( time ) => Math.round( plot.valToPos( time, 'x', true ) ) + aside[ 0 ] );
      const ys = y?.map( ( rate ) => Math.round( plot.valToPos( Math.log10( rate ), 'y', true ) ) + aside[ 1 ] );
      const [ x0, x1 = x0 ] = xs ?? [ left + 2, left + width - 3 ];
      const [ y1, y0 = y1 ] = ys ?? [ top + height - 3, top + 2 ];
      let count = 0, found = 0;
      for ( let px = x0; px <= x1; ++px )
         for ( let py = y0; py <= y1; ++py ) {
            ++count;
            found += x0 === x1 ? has( rgb, px - 1, py ) || has( rgb, px, py ) || has( rgb, px + 1, py )
               : y0 === y1 ? has( rgb, px, py - 1 ) || has( rgb, px, py ) || has( rgb, px, py + 1 ) : has( rgb, px, py );
         }
      return count ? found / count : 0;
   } );
   probe.remove();
   return result;
}, places );

describe( 'a curve', () => {
   const now = () => Date.now() / 1000;
   /** et1 with 2 Mbit/s in and 400 kbit/s out, a threshold of 100 kbit/s for 30 s, and a link that is shut in 60 s. */
   const make = () => {
      const at = now();
      const times = { quiet: at - 150, spike: at - 90, shut: at + 60 };
      rig.fake.interfaces = [ intf( 'et1', { 'state': 'enter-maint', 'in-bps': 2e6, 'out-bps': 4e5, 'reason': reason( 'above-threshold',
         { 'since': iso( times.quiet ), 'shutdown-at': iso( times.shut ), 'load-interval-seconds': 30 } ) } ) ];
      rig.fake.samples = () => ( { in: Array( 60 ).fill( 2e6 ), out: Array( 60 ).fill( 4e5 ) } );
      rig.fake.event( 'interface', 'et1', 'spike-begin', 'et1 carries traffic', { time: iso( times.spike ) } );
      return times;
   };
   const see = async ( page ) => {
      await page.locator( '.panel canvas' ).waitFor();
      await soon( async () => assert.match( await page.locator( '.panel figcaption' ).textContent(),
         /highest 2 Mbit[^]*above threshold at [^]*et1 carries traffic at / ) );
   };
   const check = async ( page, { quiet, spike, shut } ) => {
      const at = now();
      const tells = async ( list ) => {
         const shares = await drawn( page, '.panel', list.map( ( [ , place ] ) => place ) );
         list.forEach( ( [ words, , least, most = 1 ], i ) =>
            assert.ok( shares[ i ] >= least && shares[ i ] <= most, `${words}: ${shares[ i ]}` ) );
      };
      const zone = { colour: 'zone', x: [ at - 26, at - 3 ], y: [ 1.5e4, 8e4 ] };
      await tells( [
         [ 'threshold', { colour: 'threshold', y: [ 1e5 ] }, 0.3 ],
         [ 'above the threshold', { colour: 'threshold', y: [ 1e5 ], aside: [ 0, -5 ] }, 0, 0.05 ],
         [ 'in', { colour: 'in', x: [ at - 220, at - 10 ], y: [ 2e6 ] }, 0.9 ],
         [ 'out', { colour: 'out', x: [ at - 220, at - 10 ], y: [ 4e5 ] }, 0.4, 0.85 ],
         [ 'load interval', zone, 0.8 ],
         [ 'before the load interval', { ...zone, x: [ at - 80, at - 40 ] }, 0, 0.01 ],
         [ 'after now', { ...zone, x: [ at + 10, at + 30 ] }, 0, 0.01 ],
         [ 'above the threshold', { ...zone, y: [ 1.3e5, 3e5 ] }, 0, 0.01 ],
         [ 'state', { colour: 'mark', x: [ quiet ] }, 0.25, 0.7 ],
         [ 'beside the state', { colour: 'mark', x: [ quiet ], aside: [ 8, 0 ] }, 0, 0.02 ],
         [ 'spike', { colour: 'alarm', x: [ spike ] }, 0.8 ],
         [ 'beside the spike', { colour: 'alarm', x: [ spike ], aside: [ 12, 0 ] }, 0, 0.02 ],
         [ 'deadline', { colour: 'alarm', x: [ shut ] }, 0.4, 0.8 ],
         [ 'after the deadline', { colour: 'alarm', x: [ shut ], aside: [ 4, 0 ] }, 0, 0.02 ],
         [ 'its word', { colour: 'alarm', x: [ shut - 22, shut - 4 ] }, 0.005, 0.2 ],
      ] );
   };
   for ( const options of [ { colorScheme: 'light' }, { colorScheme: 'dark', deviceScaleFactor: 2 } ] )
      test( `has threshold, load interval, marks and deadline where they belong (${Object.values( options ).join( ', ' )})`, async () => {
         const times = make();
         const page = await rig.show( '#/unit/u1', options );
         await see( page );
         await soon( () => check( page, times ) );
      } );
   test( 'is drawn anew in the other colours when the reader likes others', async () => {
      const times = make();
      const page = await rig.show( '#/unit/u1', { colorScheme: 'light' } );
      await see( page );
      await page.emulateMedia( { colorScheme: 'dark' } );
      await soon( () => check( page, times ) );
   } );
   test( 'has no zone and no line without a threshold, and no deadline where nothing will be shut', async () => {
      rig.fake.profiles = [];
      rig.fake.interfaces = [ intf( 'et1', { 'in-bps': 2e6, 'out-bps': 4e5 } ) ];
      rig.fake.samples = () => ( { in: Array( 60 ).fill( 2e6 ), out: Array( 60 ).fill( 4e5 ) } );
      const page = await rig.show( '#/unit/u1' );
      await soon( async () => assert.match( await page.locator( '.panel figcaption' ).textContent(), /highest 2 Mbit/ ) );
      const everywhere = { x: [ now() - 290, now() - 5 ] };
      for ( const colour of [ 'threshold', 'zone', 'mark', 'alarm' ] )
         assert.ok( ( await drawn( page, '.panel', [ { colour, ...everywhere } ] ) )[ 0 ] < 0.001, colour );
   } );
} );

test( 'a curve of which nothing is known yet has the scale that it will have', async () => {
   rig.fake.interfaces = [];
   const page = await rig.show();
   await page.locator( '.card canvas' ).waitFor();
   const axis = () => page.locator( '.card .curve-box' ).evaluate( ( { curve: { plot } } ) => plot.axes[ 1 ]._values );
   await soon( async () => assert.deepEqual( await axis(), [ '≈0', '1k', '10k' ] ) );
} );

test( 'the curve of a unit is the sum over its interfaces, in words and in the drawing', async () => {
   rig.fake.interfaces = [ 'et1', 'et2', 'et3' ].map( ( name ) => intf( name ) );
   rig.fake.samples = ( name ) => ( { in: Array( 60 ).fill( { et1: 1e6, et2: 3e6, et3: 6e6 }[ name ] ), out: Array( 60 ).fill( 1e5 ) } );
   const page = await rig.show();
   const caption = page.locator( '.card figcaption' );
   await soon( async () => assert.match( await caption.textContent(),
      /^sum over the interfaces of u1, 5m00s to .* in: now 10 Mbit\/s, highest 10 Mbit\/s .*; out: now 300 kbit\/s, / ) );
   const at = Date.now() / 1000;
   await soon( async () => {
      const [ ins, outs ] = await drawn( page, '.card', [ { colour: 'in', x: [ at - 280, at - 10 ], y: [ 1e7 ] },
         { colour: 'out', x: [ at - 280, at - 10 ], y: [ 3e5 ] } ] );
      assert.ok( ins > 0.9 && outs > 0.4, `${ins} ${outs}` );
   } );
   assert.match( await text( page, '.card .rates' ), /in 10 Mbit\/s\s+out 300 kbit\/s/ );
   rig.fake.ahead = 7;
   rig.fake.rates( { et1: [ 1e6, 1e3 ], et2: [ 1e6, 2e3 ] } );
   await soon( async () => assert.match( await text( page, '.card .rates' ), /in 2 Mbit\/s\s+out 3 kbit\/s/ ) );
   await soon( async () => {
      await page.evaluate( () => globalThis.drainwatch.model.changed() );
      assert.match( await caption.textContent(), /in: now 2 Mbit\/s, highest 10 Mbit\/s/ );
   } );
} );
