// Properties that the scripts of tests add to the page's window.
interface Window {
  /** The page's WebSockets, oldest first. */
  sockets: WebSocket[];
  /** The text that was last written to the clipboard. */
  written: string;
  /** The largest number of bytes that waited in the page's WebSocket. */
  mostWaiting: number;
  /** Milliseconds by which the page's clock is ahead. */
  ahead: number;
  /** The alive messages that the relay has sent. */
  alive: number;
}
