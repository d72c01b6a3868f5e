" Parameter files of the stock library. The type "pf" is another one: pf.conf.
autocmd BufRead,BufNewFile *.pf setfiletype stockpf
