// The page of the real agent, with a simulated switch whose time passes when the test says so.

import assert from 'node:assert/strict';
import { after, afterEach, before, describe, test } from 'node:test';
import { Agent, twoHundred } from './agent.js';
import { axe, launch, open, scroll, soon } from './browser.js';

let browser, agent, opened;

before( async () => { browser = await launch(); } );
after( async () => { await browser.close(); } );
afterEach( async () => {
   await opened?.close();
   const wrong = opened?.wrong ?? [];
   opened = null;
   await agent?.stop();
   agent = null;
   assert.deepEqual( wrong, [] );
} );
const show = async ( path = '', options = {} ) => {
   opened = await open( browser, agent.address + path, options );
   return opened.page;
};
const text = ( page, selector ) => page.locator( selector ).first().innerText();
/** Of the events that are shown: [ time, text ], newest first. */
const rowsOf = ( page ) => page.locator( 'table.events tbody tr' ).evaluateAll( ( rows ) => rows.map( ( row ) =>
   [ row.querySelector( 'time' ).dateTime, row.lastElementChild.textContent.replace( /^! /, '' ) ] ) );
const go = ( page, path ) => page.evaluate( ( hash ) => { location.hash = hash; }, `#/${path}` );

// A name that a link of the kernel may have.
const configuration = ( web ) => `
version: 1
switch: simulated
listen: {web: "${web}"}
settle: 2s
profiles:
  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true, shutdown-max-delay: 10m}
  watch: {threshold: 100kbps, load-interval: 10s}
default-profile: fast
groups:
  uplinks: {interfaces: [et1, et2, "<script>"]}
  tenants: {interfaces: [et3], profile: watch}
units:
  spine-a: {groups: [uplinks, tenants]}
  spine-b: {groups: [tenants]}
simulated:
  clock: virtual
  ports:
    et1: {}
    et2: {}
    et3: {}
    "<script>": {}
`;

test( 'a drain is followed from start to end, over an agent that is killed and started again', async () => {
   agent = await Agent.start( configuration );
   const names = [ 'et1', 'et2', 'et3', '<script>' ];
   const traffic = ( interfaces, rate, ramp = 0 ) => Promise.all( interfaces.map( ( name ) =>
      agent.post( 'simulated/traffic', { interface: name, 'in-bps': rate, 'out-bps': rate / 2, 'ramp-seconds': ramp } ) ) );
   await traffic( names, 4e8 );
   await agent.advance( 30 );
   const page = await show();
   await page.evaluate( () => { globalThis.same = true; } );
   const streams = [];
   page.on( 'request', ( request ) => /events\?/.test( request.url() ) && streams.push( request.url() ) );
   await soon( async () => assert.match( await text( page, 'table.units:visible' ), /spine-a[^]*spine-b/ ) );

   await agent.post( 'units/spine-a/enter', { reason: '<img src=x onerror="globalThis.taken = 1">' } );
   const entering = /spine-a[^]*entering[^]*stage drainwatch[^]*“?<img src=x onerror/;
   await soon( async () => assert.match( await text( page, '.card' ), entering ) );
   await agent.advance( 10 );
   await go( page, 'unit/spine-a' );
   await soon( async () => assert.equal( await page.locator( '.panel' ).count(), 4 ) );
   const panel = ( name ) => page.locator( '.panel', { hasText: name } );
   await soon( async () => assert.match( await panel( 'et3' ).innerText(),
      /above threshold[^]*in 400 Mbit\/s[^]*out 200 Mbit\/s[^]*threshold 100 kbit\/s/ ) );
   await soon( async () => assert.match( await panel( 'et3' ).locator( 'figcaption' ).textContent(),
      /in: now 400 Mbit\/s, highest 400 Mbit\/s/ ) );
   await soon( async () => assert.match( await panel( '<script>' ).innerText(), /forced shutdown at/ ) );

   // One sentence, wherever it is read.
   const { sentence } = await agent.get( 'units/spine-a' );
   assert.match( sentence, /^0 of 4 drained; / );
   await soon( async () => assert.equal( await text( page, '.sentence:visible' ), sentence ) );
   assert.ok( ( await agent.command( 'show', 'unit', 'spine-a' ) ).includes( sentence ) );

   // All but et3 fall silent.
   await traffic( names.filter( ( name ) => name !== 'et3' ), 0, 10 );
   for ( let n = 0; n < 8; ++n )
      await agent.advance( 5 );
   await soon( async () => assert.equal( await page.getByRole( 'progressbar' ).getAttribute( 'aria-valuetext' ), '3 of 4 drained' ) );
   await soon( async () => assert.match( await panel( '<script>' ).innerText(), /shut/ ) );

   const { last } = await agent.get( 'events/recent?limit=1' );
   await soon( async () => assert.equal( await page.evaluate( () => globalThis.drainwatch.model.events.at( -1 ).sequence ), last ) );
   await agent.kill();
   await soon( async () => assert.match( await text( page, '.link' ), /stale since \d\d:\d\d:\d\d/ ) );
   await agent.run();
   await soon( async () => assert.match( await text( page, '.link' ), /live/ ) );
   await soon( async () => assert.match( await text( page, '.head' ), /entering/ ) );
   assert.equal( await page.evaluate( () => globalThis.same ), true );
   // It has gone on after the last event that it knew, with those that came before it asked.
   assert.deepEqual( new Set( streams.map( ( url ) => new URL( url ).searchParams.get( 'after' ) ) ), new Set( [ String( last ) ] ) );

   // What traffic there was is gone with the simulated switch; et3 is silent too.
   await agent.until( 'spine-a', 'maintenance' );
   await soon( async () => assert.match( await text( page, '.head' ), /maintenance/ ) );
   await soon( async () => assert.match( await page.locator( '[aria-live=polite]' ).textContent(), /spine-a: maintenance/ ) );

   await traffic( [ 'et3' ], 5e7 );
   await agent.advance( 10 );
   await agent.advance( 10 );
   await soon( async () => assert.match( await text( page, '.head' ), /violated/ ) );
   await soon( async () => assert.match( await text( page, '.violations' ), /et3/ ) );
   await soon( async () => assert.match( await panel( 'et3' ).innerText(), /spike/ ) );
   await traffic( [ 'et3' ], 0 );

   await agent.post( 'units/spine-a/exit', { reason: 'done' } );
   await agent.until( 'spine-a', 'normal' );
   await soon( async () => assert.match( await text( page, '.head' ), /normal/ ) );
   await soon( async () => assert.match( await text( page, 'table.records' ), /1[^]*✓ completed/ ) );
   const story = /spine-a is normal[^]*! et3 carries[^]*spine-a is under maintenance/;
   await soon( async () => assert.match( await text( page, 'table.events' ), story ) );
   // Nothing is missing of all that has happened, and nothing is there twice.
   const told = await agent.get( 'events/recent?after=0&limit=4000' );
   await go( page, 'events' );
   const all = told.events.map( ( event ) => [ event.time, event.text ] );
   await soon( async () => assert.deepEqual( ( await rowsOf( page ) ).reverse(), all ) );
   await go( page, 'unit/spine-a' );
   await page.locator( 'table.records a' ).first().click();
   await soon( async () => assert.equal( await text( page, 'h1' ), 'Maintenance 1 of spine-a' ) );
   await soon( async () => assert.equal( await page.locator( '.panel canvas' ).count(), 4 ) );
   assert.match( await text( page, '.course' ), /enter by[^]*<img src=x onerror[^]*under maintenance[^]*exit by[^]*done[^]*completed/ );

   for ( const path of [ '', 'unit/spine-a', `interface/${encodeURIComponent( '<script>' )}`, 'events', 'history', 'history/1' ] ) {
      await go( page, path );
      await page.locator( 'h1' ).waitFor();
      assert.deepEqual( await axe( page ), [], path );
   }
   assert.deepEqual( await page.evaluate( () => [ globalThis.taken, document.scripts.length, document.images.length ] ),
      [ undefined, 1, 0 ] );
} );

test( 'two hundred interfaces at once are followed while somebody scrolls, and only those in sight are drawn', async () => {
   agent = await Agent.start( twoHundred );
   await agent.post( 'units/spine-a/enter' );
   const page = await show( '#/unit/spine-a' );
   await soon( async () => assert.equal( await page.locator( '.panel' ).count(), 200 ) );
   await soon( async () => assert.equal( await page.locator( '.matrix li' ).count(), 200 ) );
   const scrolled = scroll( page, 120 );
   for ( let n = 0; n < 4; ++n )
      await agent.advance( 5 );
   const { frames, most, drawn } = await scrolled;
   assert.ok( most > 0 && most < 60, `${most} curves` );
   assert.ok( drawn <= frames * most, `${drawn} curves drawn in ${frames} frames` );
   await agent.until( 'spine-a', 'maintenance' );
   await soon( async () => assert.match( await text( page, '.head' ), /maintenance/ ) );
   await soon( async () => assert.equal( await page.getByRole( 'progressbar' ).getAttribute( 'aria-valuetext' ), '200 of 200 drained' ) );
} );

describe( 'what the agent serves', () => {
   test( 'has a policy, is compressed, and is not sent twice', async () => {
      agent = await Agent.start( configuration );
      for ( const path of [ '', 'page.js', 'page.css', 'icon.svg' ] ) {
         const first = await fetch( agent.address + path );
         await first.arrayBuffer();
         assert.equal( first.status, 200, path );
         assert.match( first.headers.get( 'content-security-policy' ), /^default-src 'none'; script-src 'self';/ );
         assert.equal( first.headers.get( 'x-content-type-options' ), 'nosniff' );
         assert.equal( first.headers.get( 'content-encoding' ), 'gzip' );
         const again = await fetch( agent.address + path, { headers: { 'If-None-Match': first.headers.get( 'etag' ) } } );
         assert.equal( again.status, 304, path );
      }
      const posted = await fetch( `${agent.address}api/v1/units/spine-a/enter`, { method: 'POST', body: '{}' } );
      assert.equal( posted.status, 405 );
   } );
} );
