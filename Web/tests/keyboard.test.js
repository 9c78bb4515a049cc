// Whoever has no mouse: every view can be walked through and operated, it shows where one is, and what comes and goes takes
// nobody away from there.

import assert from 'node:assert/strict';
import { beforeEach, describe, test } from 'node:test';
import { axe, soon } from './browser.js';
import { intf, iso, reason, record, unit } from './fake.js';
import { rig, text } from './rig.js';

/** Each view by its path, and what is there when it is whole. */
const views = { '': '.card .matrix a', 'unit/u1': '.panel', 'interface/et2': '.panel canvas', 'events': 'td a',
   'history': 'td a', 'history/7': '.panel canvas' };

beforeEach( () => {
   rig.fake.units[ 0 ].violating = [ 'et3' ];
   rig.fake.interfaces.push( ...[ 4, 5, 6, 7, 8, 9, 10 ].map( ( n ) => intf( `et${n}`,
      { state: 'under-maint', reason: reason( 'drained' ) } ) ) );
   rig.fake.event( 'interface', 'et2', 'reason', 'et2 is quiet' );
   rig.fake.event( 'profile', 'fast', 'edited', 'fast has been edited' );
} );

const show = async ( path, options = {} ) => {
   const page = await rig.show( `#/${path}`, options );
   await page.locator( views[ path ] ).first().waitFor();
   await page.locator( '.link.good' ).waitFor();
   return page;
};
/** What the focus is on, in words. */
const focused = ( page ) => page.evaluate( () => document.activeElement.textContent );
const hash = ( page ) => page.evaluate( () => location.hash );
/** Puts the focus there, and notes if it leaves. */
const focus = async ( page, locator ) => {
   await locator.focus();
   await page.evaluate( () => {
      globalThis.lost = 0;
      document.activeElement.addEventListener( 'blur', () => ++globalThis.lost );
   } );
};
const stays = async ( page, words ) =>
   assert.deepEqual( [ await focused( page ), await page.evaluate( () => globalThis.lost ) ], [ words, 0 ] );

describe( 'a walk', () => {
   /** All that somebody with a mouse could press, in the order of the page; `told`: a number for each. */
   const stops = ( page ) => page.evaluate( () => {
      const all = [ ...document.querySelectorAll( 'a[href], button, summary' ) ].filter( ( each ) => each.checkVisibility() );
      all.forEach( ( each, i ) => { each.dataset.told = i; } );
      return all.map( ( each ) => each.textContent );
   } );
   /** Where the focus is after a key, and what is wrong with how it is shown. */
   const press = async ( page, key ) => {
      await page.keyboard.press( key );
      return page.evaluate( async () => {
         // Panels that come into sight get their size first.
         for ( let n = 0; n < 2; ++n )
            await new Promise( requestAnimationFrame );
         const at = document.activeElement, box = at.getBoundingClientRect(), top = document.querySelector( '.top' );
         const style = getComputedStyle( at );
         const under = getComputedStyle( top ).position === 'sticky' && !top.contains( at ) && box.top < top.getBoundingClientRect().bottom;
         return { told: at.dataset.told ?? null, words: at.textContent, wrong: [
            style.outlineStyle === 'none' || parseFloat( style.outlineWidth ) < 2 ? 'no outline' : '',
            box.width < 1 || box.top < 0 || box.bottom > innerHeight || box.left < 0 || box.right > innerWidth ? 'out of sight' : '',
            under ? 'under the header' : '' ].filter( Boolean ) };
      } );
   };
   for ( const path of Object.keys( views ) )
      for ( const size of [ { width: 1280, height: 700 }, { width: 360, height: 640 } ] )
         test( `through #/${path} at ${size.width} goes to everything that can be pressed, there and back`, async () => {
            const page = await show( path, { viewport: size } );
            const all = await stops( page );
            assert.ok( all.length > 5, all.join() );
            const steps = [];
            for ( let i = 0; i < all.length; ++i )
               steps.push( await press( page, 'Tab' ) );
            for ( let i = 1; i < all.length; ++i )
               steps.push( await press( page, 'Shift+Tab' ) );
            const order = all.map( ( _, i ) => String( i ) );
            assert.deepEqual( steps.map( ( { told } ) => told ), [ ...order, ...order.slice( 0, -1 ).reverse() ] );
            assert.deepEqual( steps.filter( ( { wrong } ) => wrong.length ), [] );
         } );
} );

describe( 'keys do what a mouse does', () => {
   /** Goes on to what has these words, from where the focus is. */
   const tabTo = async ( page, words ) => {
      const passed = [];
      while ( passed.at( -1 ) !== words ) {
         assert.ok( passed.length < 80, `${words} is not among ${passed.join( ' | ' )}` );
         await page.keyboard.press( 'Tab' );
         passed.push( ( await focused( page ) ).trim() );
      }
   };
   test( 'from the units to an interface, back over the path, and to the history', async () => {
      const page = await show( '' );
      await tabTo( page, '▲et2 above threshold' );
      await page.keyboard.press( 'Enter' );
      await soon( async () => assert.equal( await hash( page ), '#/interface/et2' ) );
      await page.locator( views[ 'interface/et2' ] ).first().waitFor();
      assert.equal( await page.evaluate( () => document.activeElement.id ), 'main', 'what is new is read next' );
      await tabTo( page, 'u1' );
      await page.keyboard.press( 'Enter' );
      await page.locator( views[ 'unit/u1' ] ).first().waitFor();
      await tabTo( page, 'Units' );
      await page.keyboard.press( 'Enter' );
      await page.locator( views[ '' ] ).first().waitFor();
      await page.locator( '.top a', { hasText: 'History' } ).focus();
      await page.keyboard.press( 'Enter' );
      await page.locator( views.history ).first().waitFor();
      await tabTo( page, '7' );
      await page.keyboard.press( 'Enter' );
      await page.locator( views[ 'history/7' ] ).first().waitFor();
      assert.equal( await hash( page ), '#/history/7' );
   } );
   for ( const key of [ 'Enter', 'Space' ] ) {
      test( `${key} chooses which events are shown, and the choice keeps the focus`, async () => {
         const page = await show( 'events' );
         await tabTo( page, 'profile' );
         await page.keyboard.press( key );
         await soon( async () => assert.equal( await page.locator( '.events tbody tr' ).count(), 1 ) );
         assert.equal( await page.locator( 'button[aria-pressed=true]' ).innerText(), 'profile' );
         assert.equal( await focused( page ), 'profile' );
      } );
      test( `${key} chooses how far back a curve goes, and opens its values`, async () => {
         const page = await show( 'interface/et2' );
         await tabTo( page, 'last day' );
         await page.keyboard.press( key );
         await soon( async () => assert.ok( rig.fake.asked.some( ( path ) => path.includes( 'last=86400' ) ) ) );
         assert.equal( await focused( page ), 'last day' );
         await tabTo( page, 'Values as a table' );
         await page.keyboard.press( key );
         await page.locator( '.values tbody tr' ).first().waitFor();
         assert.equal( await focused( page ), 'Values as a table' );
         assert.deepEqual( await axe( page ), [] );
      } );
      test( `${key} opens what has happened to an interface in a maintenance`, async () => {
         const page = await show( 'history/7' );
         await tabTo( page, '5 changes' );
         await page.keyboard.press( key );
         await page.locator( '.story li' ).first().waitFor();
         assert.equal( await focused( page ), '5 changes' );
      } );
   }
} );

describe( 'the focus stays where it was', () => {
   test( 'among events that come', async () => {
      const page = await show( 'events' );
      await focus( page, page.locator( 'td a', { hasText: 'et2' } ) );
      for ( let n = 0; n < 30; ++n )
         rig.fake.event( 'unit', 'u2', 'stage', `number ${n}.` );
      await soon( async () => assert.equal( await page.locator( '.events tbody tr' ).count(), 33 ) );
      await stays( page, 'et2' );
   } );
   test( 'among events of which the oldest go', async () => {
      const page = await show( '' );
      await focus( page, page.locator( '.events a', { hasText: 'et2' } ) );
      for ( let n = 0; n < 8; ++n )
         rig.fake.event( 'unit', 'u2', 'stage', `number ${n}.` );
      await soon( async () => assert.match( await text( page, '.events' ), /number 7\./ ) );
      await stays( page, 'et2' );
      rig.fake.event( 'unit', 'u2', 'stage', 'one more' );
      await soon( async () => assert.match( await text( page, '.events' ), /one more/ ) );
      assert.equal( await page.evaluate( () => document.activeElement.closest( 'table' )?.className ), 'events' );
   } );
   test( 'on an interface of a unit that others join and leave, in its list and at its curve', async () => {
      const all = rig.fake.interfaces;
      const page = await show( 'unit/u1' );
      for ( const place of [ '.matrix', '.grid', '.violating' ] ) {
         const link = page.locator( `${place} a`, { hasText: 'et3' } );
         const words = await link.textContent();
         await focus( page, link );
         for ( const interfaces of [ all.filter( ( { name } ) => name !== 'et2' ), [ intf( 'et0' ), ...all ], all ] ) {
            rig.fake.interfaces = interfaces;
            rig.fake.event( 'interface', 'et2', 'joined' );
            await soon( async () => assert.equal( await page.locator( '.panel' ).count(), interfaces.length ) );
         }
         await stays( page, words );
      }
   } );
   test( 'on an interface whose list is not shown any more, where it is shown next', async () => {
      const page = await show( 'unit/u1' );
      await page.locator( '.matrix a', { hasText: 'et2' } ).focus();
      rig.fake.interfaces = rig.fake.interfaces.slice( 0, 3 );
      rig.fake.event( 'interface', 'et9', 'left' );
      await soon( async () => assert.equal( await page.locator( '.panel' ).count(), 3 ) );
      assert.deepEqual( [ await focused( page ), await page.evaluate( () => document.activeElement.closest( '.panel' ) !== null ) ],
         [ 'et2', true ] );
   } );
   test( 'on a maintenance when there are more', async () => {
      for ( const [ path, count ] of [ [ 'history', 2 ], [ 'unit/u1', 2 ] ] ) {
         rig.fake.maintenances = [ record( 7, 'u1' ) ];
         rig.fake.units = [ { ...rig.fake.units[ 0 ], state: 'entering' }, unit( 'u2' ) ];
         const page = await show( path );
         await page.locator( '.records a' ).first().waitFor();
         await focus( page, page.locator( '.records a', { hasText: '7' } ).first() );
         rig.fake.maintenances = [ record( 8, 'u1' ), record( 7, 'u1' ) ];
         rig.fake.units = [ { ...rig.fake.units[ 0 ], state: 'exiting' }, unit( 'u2' ) ];
         rig.fake.event( 'unit', 'u1', 'exiting' );
         await soon( async () => assert.equal( await page.locator( '.records tbody tr' ).count(), count ) );
         await stays( page, '7' );
      }
   } );
   test( 'on a unit of an interface that others have too', async () => {
      const page = await show( 'interface/et2' );
      await focus( page, page.locator( '.facts a', { hasText: 'u1' } ) );
      const units = async ( names ) => {
         rig.fake.interfaces[ 1 ] = { ...rig.fake.interfaces[ 1 ], units: names };
         rig.fake.event( 'interface', 'et2', 'joined' );
         await soon( async () => assert.deepEqual( await page.locator( '.facts a' ).allInnerTexts(), names ) );
      };
      await units( [ 'a1', 'u1', 'u2' ] );
      await units( [ 'u1' ] );
      await stays( page, 'u1' );
   } );
   test( 'while curves move on and details are open', async () => {
      const page = await show( 'interface/et2' );
      await page.locator( 'summary' ).click();
      await focus( page, page.locator( 'summary' ) );
      rig.fake.interfaces[ 1 ] = intf( 'et2', { 'state': 'under-maint', 'state-time': iso( Date.now() / 1000 ),
         'reason': reason( 'drained' ) } );
      rig.fake.event( 'interface', 'et2', 'reason', 'et2 is drained' );
      await soon( async () => assert.match( await text( page, '.panel .badge' ), /drained/ ) );
      await stays( page, 'Values as a table' );
      assert.equal( await page.locator( 'details[open]' ).count(), 1 );
   } );
   test( 'within the page when what it is on has gone for good', async () => {
      const page = await show( 'unit/u1' );
      await page.locator( '.grid a', { hasText: 'et10' } ).focus();
      rig.fake.interfaces = rig.fake.interfaces.slice( 0, 3 );
      rig.fake.event( 'interface', 'et10', 'left' );
      await soon( async () => assert.equal( await page.locator( '.panel' ).count(), 3 ) );
      assert.equal( await focused( page ), 'et3' );
      rig.fake.units = [ unit( 'u2' ) ];
      rig.fake.event( 'unit', 'u1', 'removed' );
      await soon( async () => assert.match( await text( page, 'main' ), /There is no unit u1/ ) );
      await page.keyboard.press( 'Tab' );
      assert.equal( await focused( page ), 'Units', 'it goes on at the path of the view' );
   } );
} );
