// Debian's chromium, driven for a test; what a page does that it should not is noted.

import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { chromium } from 'playwright-core';

const source = readFileSync( createRequire( import.meta.url ).resolve( 'axe-core/axe.min.js' ), 'utf8' );

/** Nothing of it speaks to anybody but the page's address. */
const flags = [
   '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking', '--disable-component-update',
   '--disable-sync', '--disable-dev-shm-usage', '--font-render-hinting=none',
];

export const launch = () => chromium.launch( { executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium', args: flags } );

/**
 * A page on that address, with what went wrong on it: errors of scripts, violations of the policy, requests that leave the
 * address.
 */
export async function open( browser, address, options = {}, prepare = async () => {} ) {
   const context = await browser.newContext( { viewport: { width: 1280, height: 900 }, ...options } );
   const page = await context.newPage();
   page.setDefaultTimeout( 20000 );
   const wrong = [];
   page.on( 'pageerror', ( error ) => wrong.push( `error: ${error.stack ?? error}` ) );
   page.on( 'console', ( message ) => {
      // A line that is cut is told on the console; that is what some tests are about.
      if ( message.type() === 'error' && !/net::ERR_|Failed to load resource/.test( message.text() ) )
         wrong.push( `console: ${message.text()}` );
   } );
   page.on( 'request', ( request ) => {
      const { origin } = new URL( request.url() );
      if ( origin !== new URL( address ).origin && origin !== 'null' )
         wrong.push( `asks elsewhere: ${request.url()}` );
   } );
   await page.addInitScript( () => {
      // Whether the page is looked at: `hide( page, hidden )`.
      let hidden = false;
      Object.defineProperty( Document.prototype, 'hidden', { get: () => hidden } );
      globalThis.hide = ( now ) => {
         hidden = now;
         document.dispatchEvent( new Event( 'visibilitychange' ) );
      };
      globalThis.violations = [];
      addEventListener( 'securitypolicyviolation',
         ( event ) => globalThis.violations.push( `${event.violatedDirective} ${event.blockedURI}` ) );
   } );
   await prepare( page );
   await page.goto( address );
   return { page, context, wrong, async close() {
      wrong.push( ...await page.evaluate( () => globalThis.violations ) );
      await context.close();
   } };
}

/**
 * Somebody scrolls for so many frames. Gives how many there were, the most curves that were alive in one, and how many were
 * drawn in all.
 */
export const scroll = ( page, frames ) => page.evaluate( async ( wanted ) => {
   const { statistics } = globalThis.drainwatch;
   const before = statistics.drawn;
   let most = 0;
   for ( let n = 0; n < wanted; ++n ) {
      scrollBy( 0, 60 );
      await new Promise( requestAnimationFrame );
      most = Math.max( most, document.querySelectorAll( 'canvas' ).length );
   }
   return { frames: wanted, most, drawn: statistics.drawn - before };
}, frames );

export const hide = ( page, hidden ) => page.evaluate( ( now ) => globalThis.hide( now ), hidden );

/** Tries until it holds, or gives what was wrong the last time. */
export async function soon( check, limit = 20000 ) {
   const end = Date.now() + limit;
   for ( ;; )
      try {
         return await check();
      } catch ( error ) {
         if ( Date.now() > end )
            throw error;
         await new Promise( ( resolve ) => setTimeout( resolve, 50 ) );
      }
}

/** What axe finds, be it serious or not, each as one line; `rules`: which it looks for, without them all. */
export async function axe( page, rules = null ) {
   if ( !await page.evaluate( () => 'axe' in globalThis ) )
      await page.evaluate( source );
   const { violations } = await page.evaluate( ( values ) => globalThis.axe.run( document, values ? { runOnly: values } : {} ), rules );
   return violations.map( ( { id, impact,
      nodes } ) => `${impact} ${id}: ${nodes.map( ( node ) => `${node.target.join( ' ' )} ${node.failureSummary}` ).join( '; ' )}` );
}
