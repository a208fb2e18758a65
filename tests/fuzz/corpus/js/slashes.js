a = b / c / d; x = /[/]\//g.test(y)
return
z