// What is committed of the page.

import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdtempSync, readdirSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

const web = join( dirname( fileURLToPath( import.meta.url ) ), '..' );

test( 'the bundle is what its sources give', () => {
   const fresh = mkdtempSync( join( tmpdir(), 'page-' ) );
   try {
      execFileSync( process.execPath, [ join( web, 'build.js' ), fresh ] );
      assert.deepEqual( readdirSync( join( web, 'dist' ) ).sort(), readdirSync( fresh ).sort() );
      for ( const name of readdirSync( fresh ) )
         assert.ok( readFileSync( join( fresh, name ) ).equals( readFileSync( join( web, 'dist', name ) ) ),
            `${name}: "node Web/build.js" makes it anew` );
   } finally {
      rmSync( fresh, { recursive: true } );
   }
} );

test( 'sources are written alike', () => {
   const sources = [ 'src', 'src/views', 'tests' ].flatMap( ( folder ) => readdirSync( join( web,
      folder ) ).map( ( name ) => `${folder}/${name}` ) )
      .filter( ( name ) => /\.(js|css|html)$/.test( name ) );
   assert.ok( sources.length > 20, sources.join() );
   for ( const name of [ ...sources, 'build.js' ] ) {
      const text = readFileSync( join( web, name ), 'utf8' );
      assert.match( text, /[^\n]\n$/, `${name}: ends with one line end` );
      text.split( '\n' ).forEach( ( line, i ) => {
         assert.doesNotMatch( line, /\t|\s$/, `${name}:${i + 1}: tab or blank at the end` );
         assert.ok( line.length <= 140, `${name}:${i + 1}: ${line.length} characters` );
      } );
   }
} );

test( 'packages have exact versions and come from wherever npm is told to ask', () => {
   const { devDependencies, dependencies } = JSON.parse( readFileSync( join( web, 'package.json' ) ) );
   assert.equal( dependencies, undefined );
   for ( const [ name, version ] of Object.entries( devDependencies ) )
      assert.match( version, /^\d+\.\d+\.\d+$/, name );
   assert.doesNotMatch( readFileSync( join( web, 'package-lock.json' ), 'utf8' ), /https?:|"resolved"/ );
} );

test( 'the bundle names no address, and brings in no text as HTML', () => {
   for ( const name of readdirSync( join( web, 'dist' ) ) ) {
      const text = readFileSync( join( web, 'dist', name ), 'utf8' );
      // The two names that drawings have to call themselves by.
      assert.doesNotMatch( text.replaceAll( 'http://www.w3.org/2000/svg', '' ), /https?:\/\//, name );
      assert.doesNotMatch( text, /innerHTML|outerHTML|insertAdjacentHTML|document\.write|\beval\(/, name );
   }
} );
