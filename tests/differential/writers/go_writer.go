// Writes zip files with archive/zip: `go_writer.go VARIANT FILE`, or `... list`.
package main

import (
	"archive/zip"
	"fmt"
	"os"
	"time"
)

var tree = []string{"a.txt", "b.bin", "none", "sub/c d.txt", "sub/größe.txt"}

func check(err error) {
	if err != nil {
		panic(err)
	}
}

func add(archive *zip.Writer, header *zip.FileHeader) {
	stream, err := archive.CreateHeader(header)
	check(err)
	content, err := os.ReadFile(header.Name)
	check(err)
	_, err = stream.Write(content)
	check(err)
}

func write(file string, change func(*zip.Writer, *zip.FileHeader)) {
	out, err := os.Create(file)
	check(err)
	archive := zip.NewWriter(out)
	_, err = archive.Create("sub/")
	check(err)
	for _, name := range tree {
		header := &zip.FileHeader{Name: name, Method: zip.Deflate}
		change(archive, header)
		add(archive, header)
	}
	check(archive.Close())
	check(out.Close())
}

func main() {
	variants := map[string]func(*zip.Writer, *zip.FileHeader){
		"go":         func(*zip.Writer, *zip.FileHeader) {},
		"go, stored": func(_ *zip.Writer, h *zip.FileHeader) { h.Method = zip.Store },
		"go with times": func(_ *zip.Writer, h *zip.FileHeader) { h.Modified = time.Unix(1e9, 0) },
		"go with modes": func(_ *zip.Writer, h *zip.FileHeader) { h.SetMode(0644) },
		"go with comments": func(archive *zip.Writer, h *zip.FileHeader) {
			h.Comment = "of the item"
			check(archive.SetComment("a comment"))
		},
		"go not in UTF-8": func(_ *zip.Writer, h *zip.FileHeader) { h.NonUTF8 = true },
		"go with an extra field": func(_ *zip.Writer, h *zip.FileHeader) { h.Extra = []byte{7, 0, 1, 0, 65} },
	}
	if os.Args[1] == "list" {
		for name := range variants {
			fmt.Println(name)
		}
		return
	}
	write(os.Args[2], variants[os.Args[1]])
}
