# complete.zsh FOLDER LINE: what an interactive zsh makes of a line at whose end a tab is typed
zmodload zsh/zpty
zpty shell "zsh -f -i"
zpty -w shell "PS1= fpath=($1 \$fpath); autoload -Uz compinit; compinit -D -u; stty -echo"
zpty -w shell 'show() { print -r -- "<$BUFFER>"; zle kill-whole-line }; zle -N show; bindkey "^X" show'
zpty -w shell 'print rea""dy'
zpty -r -m shell text '*ready*'
zpty -w -n shell "$2"$'\t\x18'
zpty -r -m shell text '*<*>*'
print -r -- ${${text##*<}%>*}
