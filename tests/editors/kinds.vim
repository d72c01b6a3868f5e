" Writes the kind of each character of the files named in $PF_FILES, as the syntax of
" $PF_VIM sees it, to $PF_OUT: a line for each line, and "." behind each file.

set nocompatible
let &runtimepath = $PF_VIM . ',' . $VIMRUNTIME
filetype on
syntax enable

let s:kinds = {
      \ 'pfKey': 'k', 'pfQuotedKey': 'k', 'pfKeyEscape': 'e', 'pfEnd': 'm', 'pfUnread': 'z',
      \ 'pfStray': 'x', 'pfComment': 'c', 'pfText': 'v', 'pfEscape': 'e', 'pfReference': 'r',
      \ 'pfSwallowed': 'x', 'pfNumber': 'v', 'pfLiteralMark': 'L', 'pfLiteral': 'l',
      \ 'pfFunction': 'f', 'pfFunctionEnd': 'f', 'pfArgument': 'a', 'pfUndef': 'b',
      \ 'pfBrace': 'b', 'pfIgnored': 'i', 'pfIgnoredBehind': 'i'}

let s:out = []
for s:file in split($PF_FILES, "\n")
  execute 'silent edit' fnameescape(s:file)
  if &filetype !=# 'stockpf'
    call add(s:out, '!no file of this type')
  endif
  for s:line in range(1, line('$'))
    let s:text = '|'
    for s:column in range(1, len(getline(s:line)))
      " A transparent group counts as the one around it.
      let s:name = synIDattr(synID(s:line, s:column, 1), 'name')
      let s:text .= get(s:kinds, s:name, ' ')
    endfor
    call add(s:out, s:text)
  endfor
  call add(s:out, '.')
endfor
call writefile(s:out, $PF_OUT)
qall!
