// Symbols
