" Parameter files of the stock library.
"
" Where a key is expected stands an entry: a key and, as the group that comes next, its
" value. In a list values stand alone. Of two groups that begin at the same place Vim
" takes the one that is defined later, so the general ones come first.

if exists('b:current_syntax')
  finish
endif
let s:cpo = &cpo
set cpo&vim
syntax case match
syntax sync fromstart

syntax cluster pfEntries contains=pfKey,pfQuotedKey,pfComment,pfUnread
syntax cluster pfValues contains=pfText,pfNumber,pfLiteral,pfFunction,pfUndef,pfList,pfArray

" ---- Keys ----
syntax match pfKey /\%([^ \t}#\\]\|\\\d[^ \t]\{,2}\|\\[^ \t]\=\)\%([^ \t#\\]\|\\\d[^ \t]\{,2}\|\\[^ \t]\=\)*/
      \ contains=pfKeyEscape nextgroup=@pfValues skipwhite
syntax match pfKeyEscape /\\\d[^ \t]\{,2}\|\\\D\=/ contained
" Quotes belong to a key when a blank follows them or stands between them.
syntax match pfQuotedKey /"[^" \t]*"\ze\%([ \t]\|$\)\|"[^" \t]*\_[ \t]\_[^"]*"/
      \ nextgroup=@pfValues skipwhite
syntax match pfQuotedKey /'[^' \t]*'\ze\%([ \t]\|$\)\|'[^' \t]*\_[ \t]\_[^']*'/
      \ nextgroup=@pfValues skipwhite
syntax region pfUnread matchgroup=pfEnd start=/__\%(END\|DATA\|EOF\)__/ end=/\%$/
syntax match pfStray /}/ nextgroup=pfIgnored
syntax match pfComment /#.*/ contains=@Spell

" ---- Values ----
" To the end of the line, or beyond it behind a backslash.
syntax region pfText contained start=/[^ \t}#]/ skip=/\\\d.\{,2}\|\\.\|\\$/ end=/#/me=s-1 end=/$/
      \ contains=pfEscape,pfReference,pfSwallowed
syntax match pfEscape /\\\d.\{,2}\|\\\_D/ contained
syntax match pfReference /&{[^}]*}\|&\w\+\>(\@!/ contained
syntax match pfSwallowed /&\%(Tbl\|Arr\|Literal\){/ contained
syntax match pfNumber contained
      \ /[-+]\=\%(0[xX]\x\+\|\%(\d\+\.\=\d*\|\.\d\+\)\%([eE][-+]\=\d\+\)\=\)\ze[ \t]*\%(#\|$\)/

" A delimiter closes with the one behind it in this list, any other with the character
" that follows it.
let s:delimiters = "{}()[]<>`'"
syntax region pfLiteral contained matchgroup=pfLiteralMark
      \ start=/&Literal[^{}()[\]<>`'"]\z(.\)/ end=/\z1/ contains=pfReference,pfIgnoredBehind
      \ nextgroup=pfIgnored
for s:i in range(len(s:delimiters) - 1)
  let s:open = '\V' . s:delimiters[s:i] . '\m'
  let s:close = '\V' . s:delimiters[s:i + 1] . '\m'
  execute 'syntax region pfInner' . s:i 'contained transparent start=+' . s:open
        \ . '+ end=+' . s:close . '+ contains=pfReference,pfInner' . s:i
  execute 'syntax region pfLiteral contained matchgroup=pfLiteralMark start=+&Literal' . s:open
        \ . '+ end=+' . s:close . '+ contains=pfReference,pfIgnoredBehind,pfInner' . s:i
        \ 'nextgroup=pfIgnored'
endfor
syntax region pfLiteral contained matchgroup=pfLiteralMark
      \ start=/&Literal"\z(.*\)$/ end=/"\z1/ contains=pfReference nextgroup=pfIgnored

" Nothing but blanks may follow a function, else it is text.
syntax match pfFunction /&\a\w*(\%(.*)[ \t]*$\)\@=/ contained nextgroup=pfArgument,pfFunctionEnd
syntax match pfArgument /.\+\ze)[ \t]*$/ contained contains=pfReference nextgroup=pfFunctionEnd
syntax match pfFunctionEnd /)\ze[ \t]*$/ contained

syntax match pfUndef /&Undef{}/ contained nextgroup=pfIgnored
syntax region pfList contained matchgroup=pfBrace start=/&Tbl{/ end=/}/
      \ contains=@pfValues,pfComment,pfIgnoredBehind nextgroup=pfIgnored
syntax region pfArray contained matchgroup=pfBrace start=/&Arr{/ end=/}/
      \ contains=@pfEntries,pfIgnoredBehind nextgroup=pfIgnored

" The rest of a line behind these is not read.
syntax match pfIgnored /.\+/ contained
syntax match pfIgnoredBehind contained
      \ /\%(&\%(Tbl{\|Arr{\|Literal\%([{}()[\]<>`]\|[^{}()[\]<>`'"].\)\)\)\@<=.\+/

highlight default link pfKey Identifier
highlight default link pfQuotedKey Identifier
highlight default link pfKeyEscape SpecialChar
highlight default link pfEnd PreProc
highlight default link pfUnread Comment
highlight default link pfStray Error
highlight default link pfComment Comment
highlight default link pfText String
highlight default link pfEscape SpecialChar
highlight default link pfReference PreProc
highlight default link pfSwallowed Error
highlight default link pfNumber Number
highlight default link pfLiteralMark Type
highlight default link pfLiteral String
highlight default link pfFunction Function
highlight default link pfFunctionEnd Function
highlight default link pfArgument String
highlight default link pfUndef Type
highlight default link pfBrace Type
highlight default link pfIgnored Comment
highlight default link pfIgnoredBehind Comment

let b:current_syntax = 'stockpf'
let &cpo = s:cpo
unlet s:cpo s:i s:open s:close s:delimiters
